#pragma once

// Unpacking an update archive (tar, compressed with gzip or xz) into a staging folder.
//
// Every entry must stay inside the folder: absolute names, ".." steps, links that lead out
// of the folder (by their text or through other links in it, whichever comes first in the
// archive), entries written through or in place of a link already unpacked are refused, as
// are devices, pipes and sockets. The folder may be left half-filled after a failure; the caller
// removes it.

#include <QString>

// stagingDir must exist. Throws UpdaterFailure: unreadableArchive, unsafeArchive, or
// installFailed when the file system refuses a write.
void UnpackUpdateArchive(const QString& archivePath, const QString& stagingDir);
