#pragma once

// The application's one model: starts and supervises the helper, keeps asking it
// for news every 0.1 s, and holds everything the views show. Every published
// field changes on the GUI thread only, each with its change signal.

#include <QFuture>
#include <QList>
#include <QObject>
#include <QString>
#include <QTimer>
#include <QUrl>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <thread>

#include "dir_item_list.h"
#include "helper_answer_reader.h"
#include "panel_model.h"
#include "poll_manager/poll_manager.h"
#include "records/records.h"
#include "request_loop_link.h"
#include "system_version.h"

// What the model takes from the world around it. Each collaborator left empty is the real one:
// the poll manager's port choice and instance lock, the user's autostart entry, the
// application's resources folder and the helper as a child process.
struct ItemsProviderCollaborators {
    SystemVersion systemVersion = SystemVersion::running();
    // How long the application runs on older systems before it quits itself.
    std::chrono::milliseconds legacyLifetime = std::chrono::minutes(10);
    // What one request may take.
    HttpLimits requestLimits = PollManager::defaultRequestLimits;
    // Long enough that one request that runs into its limit does not raise the notice on
    // its own, short enough that a user looking at a frozen panel is told why.
    std::chrono::milliseconds silenceNoticeAfter = std::chrono::seconds(5);
    // A free port in [lower, upper).
    std::function<std::int64_t(std::int64_t lower, std::int64_t upper)> choosePort{};
    std::function<bool()> isLaunchAtLoginEnabled{};
    std::function<void(bool)> setLaunchAtLogin{};
    // Ends the program when another copy runs.
    std::function<void()> exitIfAlreadyOpen{};
    // Where the helper's executables are.
    QString helperFolder{};
    // A stand-in for the helper: no child runs, the request loop starts at once, and each
    // request's JSON goes here; the future holds the answer's JSON text, or fails as a
    // transport does. The loop's pings come from the transport thread, which waits for
    // their futures.
    PollManager::ExchangeStandIn exchange{};
};

class ItemsProvider : public PanelModel {
    Q_OBJECT

public:
    // Runs the whole start-up: port, helper arguments, launch at login, the
    // single-instance exit, then the helper's supervision in the background.
    explicit ItemsProvider(ItemsProviderCollaborators collaborators = {},
                           QObject* parent = nullptr);
    // Ends the exchanges under way, stops the helper (SIGTERM, and SIGKILL after two seconds)
    // and waits for its supervision to end.
    ~ItemsProvider() override;

    bool isMacOS13() const override { return isMacOS13_; }
    std::int64_t port() const { return port_; }

    bool isLoggedIn() const override { return isLoggedIn_; }
    const QString& userName() const override { return userName_; }
    void setUserName(const QString& userName) override;
    const QList<DirItem>& dirItems() const override { return dirItems_.items(); }
    const QList<GroupItem>& groups() const override { return groups_; }
    bool isLoading() const override { return isLoading_; }
    const QUrl& loginURL() const override { return loginURL_; }
    const QString& menuBarString() const override { return menuBarString_; }
    bool isHelperSilent() const override { return isHelperSilent_; }

    // The icon of the folder with that path; "internaldrive" for an unknown path.
    QString walkDirIcon(const QString& path) const override;
    void setMenuBarString();
    // Forgets the folder at once and once more 0.5 s later, in case an answer
    // already on its way brings it back.
    void deleteItem(const QString& path) override;

    // Fire and forget.
    void publish(const QString& type, const QString& id, const QString& data) override;
    // Finishes once the answer has been applied; never fails: a request that
    // fails changes nothing.
    QFuture<void> publishAndWait(const QString& type, const QString& id, const QString& data);

private:
    // Applies one answer from the helper, whatever request it answers.
    void applyAnswer(const HelperAnswer& answer);
    void updateItem(const QList<DirItem>& dirItems);
    void superviseHelper();
    void startRequestLoop();
    // On the transport thread: the loop's answer, or nothing for a failed exchange.
    void loopAnswered(std::optional<QByteArray> text);
    QFuture<void> send(QByteArray messageJSON);
    void setIsLoggedIn(bool isLoggedIn);
    void setIsLoading(bool isLoading);
    // An answer came through: the helper is not silent, and the watch starts over.
    void heardFromHelper();
    // The notice goes up once nothing was heard for silenceNoticeAfter_; until then the watch
    // waits for the rest of that time.
    void watchForSilence();
    void removeFolder(const QString& path);
    void foldersChanged();

    bool isMacOS13_ = false;
    RequestLoopLink loopLink_;
    PollManager pm_;
    QString helperFolder_;
    std::atomic<bool> isFirstRun_ = true;
    std::int64_t port_ = 0;

    bool isLoggedIn_ = true;
    QString userName_;
    DirItemList dirItems_;
    QList<GroupItem> groups_;
    bool isLoading_ = true;
    QUrl loginURL_;
    QString menuBarString_;
    bool isHelperSilent_ = false;
    std::chrono::milliseconds silenceNoticeAfter_;
    QTimer* silenceWatch_ = nullptr;

    std::shared_ptr<HelperAnswerReader> answerReader_ = std::make_shared<HelperAnswerReader>();
    // The folder list merged last, and the count of the model's changes right after: the same
    // list again with nothing changed since need not be merged.
    QList<DirItem> lastMergedFolders_;
    std::uint64_t revisionAfterMerge_ = 0;
    std::thread supervision_;
};
