#include "test_children.h"

#include <QtCore/qtestsupport_core.h>

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QThread>

QString WriteScript(const QTemporaryDir& dir, const QString& name, const QByteArray& body,
                    bool executable) {
    const QString path = dir.filePath(name);
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly)) {
        return {};
    }
    file.write("#!/bin/sh\n" + body + "\n");
    file.close();
    QFile::Permissions permissions = QFile::ReadOwner | QFile::WriteOwner;
    if (executable) {
        permissions |= QFile::ExeOwner;
    }
    file.setPermissions(permissions);
    return path;
}

int CountEntries(const char* folder) {
    return static_cast<int>(
        QDir(QString::fromLatin1(folder))
            .entryList(QDir::AllEntries | QDir::System | QDir::Hidden | QDir::NoDotAndDotDot)
            .size());
}

RunLoop::~RunLoop() {
    if (thread_.joinable()) {
        manager_.cancelNow();
        thread_.join();
    }
}

void RunLoop::start(std::optional<QString> binURL, bool withRetry) {
    launch([this, binURL = std::move(binURL), withRetry] {
        manager_.RunProces(binURL, withRetry, recordOutput(), recordExit());
    });
}

void RunLoop::startNamed(QString binName, bool withRetry) {
    launch([this, binName = std::move(binName), withRetry] {
        manager_.RunProces(binName, withRetry, recordOutput(), recordExit());
    });
}

void RunLoop::launch(std::function<void()> body) {
    thread_ = std::thread([this, body = std::move(body)] {
        loopThreadId_ = std::this_thread::get_id();
        body();
        ended_ = true;
    });
}

ProcessManager::StandardOutput RunLoop::recordOutput() {
    return [this](const QString& chunk) {
        std::lock_guard lock(lock_);
        chunks_.append(chunk);
    };
}

ProcessManager::TaskExitNotification RunLoop::recordExit() {
    return [this](std::optional<std::error_code> error) {
        std::size_t count = 0;
        {
            std::lock_guard lock(lock_);
            exits_.push_back({
                .error = error,
                .onLoopThread = std::this_thread::get_id() == loopThreadId_,
                .onGuiThread = QThread::currentThread() == QCoreApplication::instance()->thread(),
            });
            count = exits_.size();
        }
        if (onExit_) {
            onExit_(count);
        }
    };
}

bool RunLoop::waitUntilEnded() {
    if (!QTest::qWaitFor([this] { return ended_.load(); }, kPatienceMs)) {
        return false;
    }
    thread_.join();
    // Every exit of a normal run was queued before the loop returned.
    QCoreApplication::processEvents();
    return true;
}

bool RunLoop::waitForChunks(int count) {
    return QTest::qWaitFor([&] { return chunks().size() >= count; }, kPatienceMs);
}

bool RunLoop::waitForExits(std::size_t count) {
    return QTest::qWaitFor([&] { return exits().size() >= count; }, kPatienceMs);
}

QStringList RunLoop::chunks() const {
    std::lock_guard lock(lock_);
    return chunks_;
}

std::vector<RunLoop::Exit> RunLoop::exits() const {
    std::lock_guard lock(lock_);
    return exits_;
}
