#pragma once

// Starting, waiting for and reaping one child process.

#include <sys/types.h>

#include <QString>
#include <QStringList>
#include <system_error>

// Starts path with argv[0] = path followed by arguments, the application's
// environment, standard input and error, and standard output on
// standardOutputFd. The error is what posix_spawn reports, exec failures included.
std::error_code SpawnChild(const QString& path, const QStringList& arguments, int standardOutputFd,
                           pid_t& pid);

// Blocks until the child has exited, leaving it unreaped so that its pid cannot
// be reused yet. False when there is no such child to wait for.
bool WaitForExit(pid_t pid);

// Collects the exited child's status, freeing its pid.
void ReapChild(pid_t pid);
