#include "app/notice.h"

namespace murmela {

QString describe(const std::optional<Notice>& notice) {
    if (!notice) {
        return QStringLiteral("none");
    }
    switch (notice->kind) {
        case Notice::Kind::saved:
            return QStringLiteral("saved(%1)").arg(notice->name);
        case Notice::Kind::empty:
            return QStringLiteral("empty");
        case Notice::Kind::failed:
            return QStringLiteral("failed");
        case Notice::Kind::saveFailed:
            return QStringLiteral("saveFailed");
    }
    return QStringLiteral("?");
}

}  // namespace murmela
