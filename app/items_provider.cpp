#include "items_provider.h"

#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>
#include <QTimer>

#include "app/platform/launch_at_login.h"
#include "brisvane_version.h"
#include "diagnostics/diagnostics.h"
#include "helper_choice.h"

using namespace Qt::Literals::StringLiterals;
using namespace std::chrono_literals;

namespace {

constexpr std::int64_t lowestPort = 8001;
constexpr std::int64_t pastHighestPort = 9000;
constexpr auto requestInterval = 100ms;
constexpr auto secondRemovalDelay = 500ms;

QUrl siteURL() {
    const QUrl url(QStringLiteral(BRISVANE_SITE_URL), QUrl::StrictMode);
    if (!url.isValid() || url.scheme().isEmpty() || url.host().isEmpty()) {
        Diagnostics::stopUnwrappingNothing();
    }
    return url;
}

}  // namespace

ItemsProvider::ItemsProvider(ItemsProviderCollaborators collaborators, QObject* parent)
    : PanelModel(parent),
      helperFolder_(collaborators.helperFolder.isEmpty() ? ProcessManager::defaultResourceDir()
                                                         : collaborators.helperFolder),
      loginURL_(siteURL()),
      menuBarString_(u"arrow.clockwise"_s),
      silenceNoticeAfter_(collaborators.silenceNoticeAfter) {
    isMacOS13_ = collaborators.systemVersion.isAtLeast(13, 0, 0);
    pm_.setRequestLimits(collaborators.requestLimits);
    const bool standIn = static_cast<bool>(collaborators.exchange);
    pm_.setExchangeStandIn(std::move(collaborators.exchange));
    for (const auto changed :
         {&PanelModel::isLoggedInChanged, &PanelModel::userNameChanged,
          &PanelModel::dirItemsChanged, &PanelModel::groupsChanged, &PanelModel::isLoadingChanged,
          &PanelModel::menuBarStringChanged, &PanelModel::isHelperSilentChanged}) {
        connect(this, changed, this, [this] { loopLink_.modelChanged(); });
    }
    silenceWatch_ = new QTimer(this);
    silenceWatch_->setSingleShot(true);
    connect(silenceWatch_, &QTimer::timeout, this, &ItemsProvider::watchForSilence);
    silenceWatch_->start(silenceNoticeAfter_);
    port_ = collaborators.choosePort ? collaborators.choosePort(lowestPort, pastHighestPort)
                                     : pm_.randomOpenPort(lowestPort, pastHighestPort);

    ProcessManager& processManager = pm_.processManager();
    if (isMacOS13_) {
        processManager.addPIDAsArgument(u"pid"_s);
    }
    processManager.addArgument(u"token"_s, pm_.kes().LocalPublicKey());
    processManager.addArgument(u"port"_s, port_);

    const auto isLaunchAtLoginEnabled = collaborators.isLaunchAtLoginEnabled
                                            ? collaborators.isLaunchAtLoginEnabled
                                            : LaunchAtLogin::isEnabled;
    const auto setLaunchAtLogin =
        collaborators.setLaunchAtLogin ? collaborators.setLaunchAtLogin : LaunchAtLogin::setEnabled;
    if (isMacOS13_ && !isLaunchAtLoginEnabled()) {
        setLaunchAtLogin(true);
    }
    if (collaborators.exitIfAlreadyOpen) {
        collaborators.exitIfAlreadyOpen();
    } else {
        pm_.exitAppIfAlreadyOpen();
    }

    if (!isMacOS13_) {
        QTimer::singleShot(collaborators.legacyLifetime, Qt::PreciseTimer,
                           QCoreApplication::instance(), &QCoreApplication::quit);
    }
    if (standIn) {
        // A stand-in has nothing to print first: it answers from the start.
        isFirstRun_ = false;
        startRequestLoop();
    } else {
        supervision_ = std::thread([this] { superviseHelper(); });
    }
}

ItemsProvider::~ItemsProvider() {
    // First, so that no answer is passed on to a model going away.
    pm_.stopTransport();
    pm_.processManager().stopWithin(ProcessManager::defaultStopGrace);
    if (supervision_.joinable()) {
        supervision_.join();
    }
}

void ItemsProvider::superviseHelper() {
    const QString& resourceDir = helperFolder_;
    const HelperChoice choice = ChooseHelperExecutable(pm_.systemArchitecture(), resourceDir);
    Diagnostics::printLine(choice.logLine);
    const QString executable = QDir(resourceDir).filePath(choice.name);
    if (!QFileInfo(executable).isExecutable()) {
        Diagnostics::stopUnwrappingNothing();
    }

    auto pingTimeout = [] { Diagnostics::printLine(u"ping timeout"_s); };
    auto standardOutput = [this](const QString& chunk) {
        Diagnostics::printLine("o: "_L1 + chunk);
        if (isFirstRun_.exchange(false)) {
            QMetaObject::invokeMethod(
                this, [this] { startRequestLoop(); }, Qt::QueuedConnection);
        }
    };
    auto taskExitNotification = [](std::optional<std::error_code> error) {
        Diagnostics::printLine(u"task exited"_s);
        if (error) {
            Diagnostics::printLine(QString::fromStdString(error->message()));
        }
    };
    pm_.subscribeWithBinary(executable, isMacOS13_, true, PollManager::defaultPingTimeLimit,
                            pingTimeout, standardOutput, taskExitNotification);
}

void ItemsProvider::startRequestLoop() {
    loopLink_.setFolders(dirItems_.itemJSON());
    pm_.startRequestLoop(
        port_, u"/request"_s,
        {.interval = requestInterval,
         .message = [this] { return loopLink_.pingMessage(); },
         .answered = [this](std::optional<QByteArray> text) { loopAnswered(std::move(text)); }});
}

void ItemsProvider::loopAnswered(std::optional<QByteArray> text) {
    if (!text) {
        return;  // nothing changes; the silence watch sees that nothing was heard
    }
    loopLink_.heard();
    std::optional<HelperAnswer> answer = loopLink_.answerToPassOn(
        *text, [this](const QByteArray& read) { return answerReader_->read(read); });
    if (answer) {
        QMetaObject::invokeMethod(
            this,
            [this, answer = std::move(*answer)] {
                heardFromHelper();
                applyAnswer(answer);
            },
            Qt::QueuedConnection);
    }
}

void ItemsProvider::publish(const QString& type, const QString& id, const QString& data) {
    (void)publishAndWait(type, id, data);
}

QFuture<void> ItemsProvider::publishAndWait(const QString& type, const QString& id,
                                            const QString& data) {
    return send(JSONEncode(TypeIDAndData{type, id, data}));
}

QFuture<void> ItemsProvider::send(QByteArray messageJSON) {
    // The answer is opened and read on the transport thread; only applying it
    // touches the model, here on the GUI thread.
    return pm_.requestJSONText(std::move(messageJSON), port_, u"/request"_s)
        .then([reader = answerReader_, link = &loopLink_](const QByteArray& text) {
            link->heard();
            return reader->read(text);
        })
        .then(this,
              [this](const HelperAnswer& answer) {
                  heardFromHelper();
                  applyAnswer(answer);
              })
        .onFailed([] {});
}

void ItemsProvider::heardFromHelper() {
    silenceWatch_->start(silenceNoticeAfter_);
    if (isHelperSilent_) {
        isHelperSilent_ = false;
        loopLink_.setSilenceShown(false);
        emit isHelperSilentChanged();
    }
}

void ItemsProvider::watchForSilence() {
    const auto quietFor = RequestLoopLink::Clock::now() - loopLink_.lastHeard();
    if (quietFor < silenceNoticeAfter_) {
        silenceWatch_->start(
            std::chrono::ceil<std::chrono::milliseconds>(silenceNoticeAfter_ - quietFor));
    } else if (!isHelperSilent_) {
        isHelperSilent_ = true;
        loopLink_.setSilenceShown(true);
        emit isHelperSilentChanged();
    }
}

void ItemsProvider::applyAnswer(const HelperAnswer& answer) {
    if (const auto* folders = std::get_if<QList<DirItem>>(&answer)) {
        setIsLoggedIn(true);
        updateItem(*folders);
    } else if (const auto* groups = std::get_if<QList<GroupItem>>(&answer)) {
        setIsLoggedIn(true);
        if (groups_ != *groups) {
            groups_ = *groups;
            emit groupsChanged();
        }
    } else if (const auto* envelope = std::get_if<TypeIDAndData>(&answer)) {
        if (envelope->type == "auth request"_L1) {
            setIsLoggedIn(false);
        } else if (envelope->type == "ping"_L1) {
            setIsLoggedIn(true);
            if (dirItems_.isEmpty() && isLoading_) {
                setIsLoading(false);
                setMenuBarString();
            }
        } else {
            Diagnostics::printLine(u"unknown request type"_s);
        }
    } else {
        Diagnostics::printLine(u"cannot decode message"_s);
    }
}

void ItemsProvider::updateItem(const QList<DirItem>& dirItems) {
    // The list merged last time, repeated with nothing changed since: merging
    // it again would change nothing either.
    if (loopLink_.revision() == revisionAfterMerge_ && dirItems.isSharedWith(lastMergedFolders_)) {
        return;
    }
    if (dirItems_.merge(dirItems)) {
        foldersChanged();
    }
    const bool busy = dirItems_.isBusy();
    if (isLoading_ != busy) {
        setIsLoading(busy);
        setMenuBarString();
    }
    lastMergedFolders_ = dirItems;
    revisionAfterMerge_ = loopLink_.revision();
}

void ItemsProvider::foldersChanged() {
    loopLink_.setFolders(dirItems_.itemJSON());
    emit dirItemsChanged();
}

void ItemsProvider::deleteItem(const QString& path) {
    bool groupsChangedNow = false;
    for (GroupItem& group : groups_) {
        groupsChangedNow |= group.walkPaths.removeAll(path) > 0;
    }
    if (groupsChangedNow) {
        emit groupsChanged();
    }
    removeFolder(path);
    QTimer::singleShot(secondRemovalDelay, this, [this, path] { removeFolder(path); });
}

void ItemsProvider::removeFolder(const QString& path) {
    if (dirItems_.remove(path)) {
        foldersChanged();
    }
}

QString ItemsProvider::walkDirIcon(const QString& path) const {
    const DirItem* item = dirItems_.find(path);
    return item != nullptr ? item->icon() : u"internaldrive"_s;
}

void ItemsProvider::setMenuBarString() {
    QString symbol = isLoading_ ? u"arrow.clockwise"_s : u"internaldrive"_s;
    if (menuBarString_ != symbol) {
        menuBarString_ = std::move(symbol);
        emit menuBarStringChanged();
    }
}

void ItemsProvider::setUserName(const QString& userName) {
    if (userName_ != userName) {
        userName_ = userName;
        emit userNameChanged();
    }
}

void ItemsProvider::setIsLoggedIn(bool isLoggedIn) {
    if (isLoggedIn_ != isLoggedIn) {
        isLoggedIn_ = isLoggedIn;
        emit isLoggedInChanged();
    }
}

void ItemsProvider::setIsLoading(bool isLoading) {
    if (isLoading_ != isLoading) {
        isLoading_ = isLoading;
        emit isLoadingChanged();
    }
}
