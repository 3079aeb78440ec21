#include "group_block.h"

#include <QDir>
#include <QFileInfo>
#include <QHBoxLayout>
#include <QLabel>
#include <QStyle>
#include <QTimer>
#include <QVBoxLayout>

#include "app/panel_model.h"
#include "diagnostics/diagnostics.h"
#include "elided_label.h"
#include "symbol_button.h"
#include "view_environment.h"
#include "view_fonts.h"

using namespace Qt::Literals::StringLiterals;
using namespace std::chrono_literals;

namespace {

constexpr int symbolWidth = 16;

}  // namespace

GroupBlock::GroupBlock(ViewEnvironment& environment, const GroupItem& group, QWidget* parent)
    : QWidget(parent), environment_(environment), group_(group) {
    setObjectName(u"group-%1"_s.arg(group.groupID));
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->addWidget(makeHeader());
    for (const QString& path : group.walkPaths) {
        layout->addWidget(makeFolderRow(path));
    }
}

QWidget* GroupBlock::makeHeader() {
    auto* header = new QWidget(this);
    auto* title = new QLabel(u"%1 (#%2)"_s.arg(group_.name).arg(group_.groupID), header);
    title->setObjectName(u"groupTitle"_s);
    title->setTextFormat(Qt::PlainText);
    title->setFont(Title3Font(font()));

    auto* row = new QHBoxLayout(header);
    // The header sits further in than the folder rows below it: 20 on the leading
    // side, and the usual inset twice over on both sides.
    const int inset = style()->pixelMetric(QStyle::PM_LayoutLeftMargin);
    row->setContentsMargins(20 + 2 * inset, 0, 2 * inset, inset);
    row->addWidget(title);
    row->addStretch(1);
    if (environment_.ip.isMacOS13()) {
        auto* photoButton = new SymbolButton(
            u"person.crop.rectangle.badge.plus"_s, symbolWidth, tr("Watch a new photos library"),
            tr("Watch a new photos library for %1").arg(group_.name), header);
        photoButton->setObjectName(u"addPhotoLibraryButton"_s);
        connect(photoButton, &QToolButton::clicked, this, &GroupBlock::addPhotoLibrary);
        row->addWidget(photoButton);
    }
    auto* folderButton =
        new SymbolButton(u"folder.badge.plus"_s, symbolWidth, tr("Watch a new folder"),
                         tr("Watch a new folder for %1").arg(group_.name), header);
    folderButton->setObjectName(u"addFolderButton"_s);
    connect(folderButton, &QToolButton::clicked, this, &GroupBlock::addFolder);
    row->addWidget(folderButton);
    return header;
}

QWidget* GroupBlock::makeFolderRow(const QString& path) {
    auto* folderRow = new QWidget(this);
    folderRow->setObjectName(u"folderRow"_s);
    folderRow->setProperty("path", path);

    auto* openButton = new SymbolButton(environment_.ip.walkDirIcon(path), symbolWidth, tr("Open"),
                                        tr("Open %1").arg(path), folderRow);
    openButton->setObjectName(u"openDirButton"_s);
    openButton->setProperty("path", path);
    connect(openButton, &QToolButton::clicked, this,
            [this, path] { environment_.ip.publish(u"openDirPath"_s, path, QString()); });
    openButtons_.append(openButton);

    auto* pathLabel = new ElidedLabel(path, folderRow);

    auto* trashButton = new SymbolButton(
        u"trash"_s, symbolWidth,
        tr("Stop watching this folder.  The files and folders will not be deleted."),
        tr("Stop watching %1").arg(path), folderRow);
    trashButton->setObjectName(u"stopWatchingButton"_s);
    connect(trashButton, &QToolButton::clicked, this, [this, path] { stopWatching(path); });

    auto* row = new QHBoxLayout(folderRow);
    const int inset = style()->pixelMetric(QStyle::PM_LayoutLeftMargin);
    row->setContentsMargins(inset, 0, inset, 0);
    row->addWidget(openButton);
    row->addWidget(pathLabel, 1);
    row->addWidget(trashButton);
    return folderRow;
}

void GroupBlock::refreshFolderIcons() {
    for (SymbolButton* button : std::as_const(openButtons_)) {
        button->setSymbolName(environment_.ip.walkDirIcon(button->property("path").toString()));
    }
}

void GroupBlock::addFolder() {
    // The chooser runs its own event loop, and the groups may change meanwhile and
    // take this block with them: nothing of the block is touched once it returns.
    ViewEnvironment& environment = environment_;
    const QString groupName = group_.name;
    const std::optional<QUrl> chosen = environment.selectDir(std::nullopt, window());
    if (!chosen || !chosen->isLocalFile()) {
        return;
    }
    watch(environment, groupName, chosen->toLocalFile());
}

void GroupBlock::addPhotoLibrary() {
    ViewEnvironment& environment = environment_;
    const QString groupName = group_.name;
    const std::optional<QUrl> chosen = environment.selectPhotoLibrary(u"~/Pictures"_s, window());
    if (!chosen || !chosen->isLocalFile()) {
        return;
    }
    // The service syncs the library's originals, not its database and thumbnails.
    const QString library = QFileInfo(chosen->toLocalFile()).absoluteFilePath();
    watch(environment, groupName, QDir::cleanPath(QDir(library).absoluteFilePath(u"originals"_s)));
}

void GroupBlock::stopWatching(const QString& path) {
    environment_.ip.publish(u"stopWatching"_s, path, QString());
    environment_.ip.deleteItem(path);
    AskForGroupsNowAndSoon(environment_.ip);
}

void GroupBlock::watch(ViewEnvironment& environment, const QString& groupName,
                       const QString& path) {
    Diagnostics::printLine(path);
    // The group goes by its name here, unlike the web button, which sends its number.
    environment.ip.publish(u"addWatchDir"_s, groupName, path);
    AskForGroupsNowAndSoon(environment.ip);
}

void AskForGroups(PanelModel& ip) {
    ip.publish(u"getGroups"_s, QString(), QString());
}

void AskForGroupsNowAndSoon(PanelModel& ip) {
    AskForGroups(ip);
    // Timed on the model, which outlives any view that asks.
    QTimer::singleShot(500ms, &ip, [&ip] { AskForGroups(ip); });
}
