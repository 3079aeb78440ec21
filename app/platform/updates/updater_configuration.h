#pragma once

// Where updates come from, how they are checked, and where they go.

#include <QByteArray>
#include <QString>
#include <QUrl>

struct UpdaterConfiguration {
    QUrl feedURL;
    QByteArray publicEdKey;  // raw 32-byte Ed25519 key; empty: no update can be installed
    QString installDir;      // the folder holding bin/, libexec/ and share/
    QString bundleVersion;   // compared with the feed's sparkle:version
    QString shortVersion;    // shown to the user
    QUrl downloadPage;       // where the user gets an update that cannot be installed here

    // The feed address and versions this build was made with, the key from the resources
    // folder, and the folder the running executable's bin/ is in.
    static UpdaterConfiguration builtIn();
};

// The file in the resources folder holding the base64 text of the public key.
inline constexpr char kUpdatePublicKeyFileName[] = "update-public-ed-key";
