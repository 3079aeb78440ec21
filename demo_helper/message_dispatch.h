#pragma once

// What the simulated service does for each message type, and what it answers.

#include <variant>
#include <vector>

#include "records/records.h"

class SimulatedService;
class DesktopOpener;

// An envelope ("auth request", "ping"), the watched folders, or the groups.
using Answer = std::variant<TypeIDAndData, std::vector<DirItem>, std::vector<GroupItem>>;

struct Dispatched {
    Answer answer;
    bool endAfterAnswer = false;  // "logoutAndExit"
};

class MessageDispatcher {
public:
    MessageDispatcher(SimulatedService& service, const DesktopOpener& opener, QString siteURL);

    Dispatched dispatch(const TypeIDAndData& message) const;

private:
    // The state as a "ping" sees it: log in first, else the folders, else "ping".
    Answer currentState() const;
    void openGroupPage(const QString& groupID) const;
    void openFolder(const QString& path) const;

    SimulatedService& service_;
    const DesktopOpener& opener_;
    QString siteURL_;
};
