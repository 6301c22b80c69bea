// SPDX-License-Identifier: Apache-2.0
// The media configuration file. Libraries that it names are not looked for: that takes
// longer than all the rest, and an input could run any file of the machine. One name is
// that of a library, the library under test; with all others loading fails.
#include <dlfcn.h>

#include <cstring>
#include <string_view>

#include "fuzz/fuzz_memory_file.h"
#include "fuzz/fuzz_target.h"
#include "tavdb_modules.h"

namespace {

constexpr const char *kKnownLibrary = "libtavdb.so.1";
constexpr const char *kNotFound = "cannot open shared object file: No such file or directory";

thread_local bool s_wasRefused;

/// What would be called had this program no function of that name.
template <typename Function>
Function *nextOf(Function *, const char *name) {
    return reinterpret_cast<Function *>(dlsym(RTLD_NEXT, name));
}

}  // namespace

extern "C" void *dlopen(const char *name, int mode) noexcept {
    s_wasRefused = name != nullptr && std::strcmp(name, kKnownLibrary) != 0;
    static const auto next = nextOf(dlopen, "dlopen");
    return s_wasRefused ? nullptr : next(name, mode);
}

extern "C" char *dlerror() noexcept {
    static const auto next = nextOf(dlerror, "dlerror");
    static char text[128];
    if (!s_wasRefused)
        return next();
    s_wasRefused = false;
    return std::strcpy(text, kNotFound);
}

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    static const tavdb_fuzz::MemoryFile file;
    file.put({reinterpret_cast<const char *>(data), size});
    media_init(file.path(), 0);
    media_term();
    return 0;
}
