#pragma once

// The tray item of older systems: a fixed icon whose menu holds the whole panel,
// 550 by 450, with its controls live inside the menu.

class QObject;
struct ViewEnvironment;

// Installs the item, owned by owner (the application's lives as long as it runs);
// environment must live as long as the item.
void MenuBarExtraLegacy(ViewEnvironment& environment, QObject* owner);
