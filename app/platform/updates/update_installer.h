#pragma once

// Putting a verified update archive in place of the running installation.
//
// The archive is unpacked into a staging folder beside the installation (the same file
// system, so the swap is two renames), then the installation is renamed to its ".previous"
// name, kept for a rollback, and the staging folder takes its place. The running program
// keeps its open files; the new version runs at the next start.
//
// Only a folder that holds brisvane alone may be swapped: installing with a shared prefix
// such as /usr or ~/.local must never replace that prefix. Such a folder carries the marker
// file below at its top, and so must every update archive.

#include <QString>

inline constexpr char kSelfContainedInstallMarker[] = ".brisvane-bundle";

QString UpdateStagingFolder(const QString& installDir);
QString UpdatePreviousFolder(const QString& installDir);

// True when installDir is a marked folder (not a link) owned by the user running the program,
// and both it and the folder it is in are writable.
bool CanSelfInstall(const QString& installDir);

// Unpacks and swaps in; on failure the staging folder is removed and the installation left as
// it was. Throws UpdaterFailure: installFolderReadOnly, the unpacking errors,
// incompleteArchive (no marker or no bin folder), installFailed.
void InstallUpdateArchive(const QString& archivePath, const QString& installDir);
