#include "app/phase.h"

#include <cstdio>
#include <cstdlib>

namespace murmela {

const char* name(Phase phase) {
    switch (phase) {
        case Phase::loading:
            return "loading";
        case Phase::ready:
            return "ready";
        case Phase::speaking:
            return "speaking";
        case Phase::saving:
            return "saving";
        case Phase::failed:
            return "failed";
    }
    std::fprintf(stderr, "murmela: a phase out of range\n");
    std::abort();
}

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
        case Notice::Kind::voiceGone:
            return QStringLiteral("voiceGone(%1)").arg(notice->name);
        case Notice::Kind::voiceNotAdded:
            return QStringLiteral("voiceNotAdded(%1)").arg(notice->name);
    }
    return QStringLiteral("?");
}

}  // namespace murmela
