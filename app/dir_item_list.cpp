#include "dir_item_list.h"

#include <algorithm>

const DirItem* DirItemList::find(const QString& path) const {
    const auto found = indexByPath_.constFind(path);
    return found == indexByPath_.cend() ? nullptr : &items_.at(*found);
}

bool DirItemList::merge(const QList<DirItem>& reported) {
    bool changed = false;
    for (const DirItem& item : reported) {
        const auto found = indexByPath_.constFind(item.path);
        if (found == indexByPath_.cend()) {
            indexByPath_.insert(item.path, items_.size());
            items_.append(item);
            itemJSON_.append(JSONEncode(item));
            changed = true;
        } else if (items_.at(*found) != item) {
            items_[*found] = item;
            itemJSON_[*found] = JSONEncode(item);
            changed = true;
        }
    }
    return changed;
}

bool DirItemList::remove(const QString& path) {
    const auto found = indexByPath_.constFind(path);
    if (found == indexByPath_.cend()) {
        return false;
    }
    items_.removeAt(*found);
    itemJSON_.removeAt(*found);
    indexByPath_.clear();
    for (qsizetype index = 0; index < items_.size(); ++index) {
        indexByPath_.insert(items_.at(index).path, index);
    }
    return true;
}

bool DirItemList::isBusy() const {
    return std::any_of(items_.cbegin(), items_.cend(),
                       [](const DirItem& item) { return item.progress() != 1.0; });
}

QByteArray DirItemList::joinJSON(const QList<QByteArray>& elements) {
    qsizetype size = 2 + elements.size();
    for (const QByteArray& json : elements) {
        size += json.size();
    }
    QByteArray text;
    text.reserve(size);
    text.append('[');
    for (qsizetype index = 0; index < elements.size(); ++index) {
        if (index > 0) {
            text.append(',');
        }
        text.append(elements[index]);
    }
    text.append(']');
    return text;
}
