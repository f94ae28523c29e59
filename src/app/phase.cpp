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

}  // namespace murmela
