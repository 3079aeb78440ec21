#pragma once

// What an answer from the helper says, read by trying its three shapes in a
// fixed order: a folder list, a group list, then a plain envelope.

#include <QJsonValue>
#include <QList>
#include <variant>

#include "records/records.h"

struct UndecodableAnswer {};

using HelperAnswer =
    std::variant<QList<DirItem>, QList<GroupItem>, TypeIDAndData, UndecodableAnswer>;

// The first shape that decodes wins; an empty array is therefore a folder list.
HelperAnswer ReadHelperAnswer(const QJsonValue& answer);
