#pragma once

// Opens folders and web pages with the desktop's opener program, without waiting.

#include <QString>

class DesktopOpener {
public:
    explicit DesktopOpener(QString program) : program_(std::move(program)) {}

    // Starts `program target`; a program that cannot be started is ignored, as the
    // user simply sees nothing open.
    void open(const QString& target) const;

private:
    QString program_;
};
