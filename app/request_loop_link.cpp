#include "request_loop_link.h"

#include "dir_item_list.h"
#include "records/records.h"

using namespace Qt::Literals::StringLiterals;

void RequestLoopLink::setFolders(const QList<QByteArray>& folderJSON) {
    std::lock_guard lock(lock_);
    folderJSON_ = folderJSON;
}

QByteArray RequestLoopLink::pingMessage() {
    QList<QByteArray> folders;
    {
        std::lock_guard lock(lock_);
        folders = folderJSON_;
    }
    // The list is shared until the model changes it, so an unchanged list is known at once.
    if (ping_.isEmpty() || !folders.isSharedWith(pingFolders_)) {
        // TypeIDAndData's own encoding, with the folders' JSON written straight from the
        // model's kept UTF-8 text.
        JSONWriter writer;
        writer.beginObject();
        writer.member("Type"_L1, u"ping"_s);
        writer.member("ID"_L1, QString());
        writer.key("Data"_L1);
        writer.valueFromUTF8(DirItemList::joinJSON(folders));
        writer.endObject();
        ping_ = std::move(writer).text();
        pingFolders_ = std::move(folders);
    }
    return ping_;
}

bool RequestLoopLink::isLogged(const HelperAnswer& answer) {
    const auto* envelope = std::get_if<TypeIDAndData>(&answer);
    return std::holds_alternative<UndecodableAnswer>(answer) ||
           (envelope != nullptr && envelope->type != "auth request"_L1 &&
            envelope->type != "ping"_L1);
}
