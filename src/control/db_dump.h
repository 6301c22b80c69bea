// SPDX-License-Identifier: Apache-2.0
// The diagnostic dump of one module: banner, sizes, statics, function addresses.
// Each module describes itself with a DumpModule; dumpModule prints it.
#pragma once

#include <cstdint>
#include <span>

namespace tavdb {

inline constexpr int32_t kDumpWithSizes = 5;
inline constexpr int32_t kDumpStatics = 98;

/// One line "[0x%8x]:name".
struct DumpWord {
    const char *name;
    const uint32_t *value;
};

struct DumpFunction {
    const char *name;
    void (*address)();
};

/// What a module prints at level 98.
enum class AtLevel98 : uint8_t { bannerAndStatics, nothing };

struct DumpModule {
    const char *banner;
    uint32_t debugSize;  ///< bytes, added to the caller's debug total
    uint32_t ramSize;    ///< bytes, added to the caller's RAM total
    std::span<const DumpWord> words;
    std::span<const DumpFunction> functions;
    AtLevel98 atLevel98 = AtLevel98::bannerAndStatics;
    void (*moreStatics)(int32_t level) = nullptr;  ///< statics that are not words
};

/// Prints a module. The totals may be null. @return 0
int32_t dumpModule(const DumpModule &module, int32_t level, uint32_t *debugSize, uint32_t *ramSize);

void dumpWord(int32_t level, const char *name, uint32_t value);
void dumpText(int32_t level, const char *name, const char *text);

/// A function's row; the name is the function's own.
#define TAVDB_DUMP_FUNCTION(function)                        \
    ::tavdb::DumpFunction {                                  \
#function, reinterpret_cast < void (*)()>(&function) \
    }
/// A static's row; the name is the variable's own.
#define TAVDB_DUMP_WORD(variable) \
    ::tavdb::DumpWord {           \
#variable, &(variable)    \
    }

}  // namespace tavdb
