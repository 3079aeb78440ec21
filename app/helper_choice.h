#pragma once

// Which helper build to run: the beta build when the resources carry one, the
// release build otherwise, each named for the machine's architecture.

#include <QString>

struct HelperChoice {
    QString name;     // the executable's name among the resources
    QString logLine;  // says which build was chosen
};

HelperChoice ChooseHelperExecutable(const QString& architecture, const QString& resourceDir);
