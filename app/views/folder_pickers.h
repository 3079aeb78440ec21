#pragma once

// The modal choosers for a folder to watch and for a photo library (on Linux simply a
// folder chosen as a whole).

#include <QString>
#include <QUrl>
#include <optional>

class QWidget;

// A leading "~" in startPath stands for the home folder.
std::optional<QUrl> selectDir(const std::optional<QString>& startPath, QWidget* parent = nullptr);
std::optional<QUrl> selectPhotoLibrary(const std::optional<QString>& startPath,
                                       QWidget* parent = nullptr);
