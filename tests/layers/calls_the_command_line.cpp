// Code of a library reaching into the command line's layer, which its library does not name.

#include "cli/say_options.h"

namespace murmela {

SayOptions reachIntoTheCommandLine() {
    return parseSayOptions({"--help"});
}

}  // namespace murmela
