#include "helper_choice.h"

#include <QDir>
#include <QFileInfo>

using namespace Qt::Literals::StringLiterals;

HelperChoice ChooseHelperExecutable(const QString& architecture, const QString& resourceDir) {
    const bool isArm = architecture == "arm64"_L1;
    const QString release = isArm ? u"harlix-darwin-arm64"_s : u"harlix-darwin-amd64"_s;
    const QString beta = release + "-beta"_L1;
    if (QFileInfo::exists(QDir(resourceDir).filePath(beta))) {
        return {beta, "run beta: "_L1 + beta};
    }
    return {release, "run release "_L1 + release + u':'};
}
