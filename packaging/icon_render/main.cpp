// brisvane_render_icon <input.svg> <size> <output.png>: one PNG of the icon, at build time.

#include <QByteArray>
#include <QFile>
#include <QString>
#include <cstdio>

#include "svg_icon_render.h"

namespace {

int fail(const QString& message) {
    std::fprintf(stderr, "brisvane_render_icon: %s\n", qPrintable(message));
    return 1;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 4) {
        return fail(QStringLiteral("usage: brisvane_render_icon <input.svg> <size> <output.png>"));
    }
    // Drawn straight into an image, without an application object: a build machine may
    // have no display, and the icons hold shapes only, no text that would need fonts.
    const QString input = QString::fromLocal8Bit(argv[1]);
    const QString output = QString::fromLocal8Bit(argv[3]);
    bool isNumber = false;
    const int size = QByteArray(argv[2]).toInt(&isNumber);
    if (!isNumber) {
        return fail(QStringLiteral("the size %1 is not a number").arg(argv[2]));
    }

    QFile file(input);
    if (!file.open(QIODevice::ReadOnly)) {
        return fail(QStringLiteral("cannot read %1: %2").arg(input, file.errorString()));
    }
    const std::optional<QImage> image = RenderSvgIcon(file.readAll(), size);
    if (!image) {
        return fail(QStringLiteral("cannot render %1 at %2 pixels").arg(input).arg(size));
    }
    if (!image->save(output, "PNG")) {
        return fail(QStringLiteral("cannot write %1").arg(output));
    }
    return 0;
}
