// SPDX-License-Identifier: Apache-2.0
// What must hold of images that were put right, whatever they were before. What does
// not hold ends the program, with the findings of the check.
#pragma once

#include <string>
#include <vector>

#include "image/check.h"

namespace tavdb_fuzz {

[[noreturn]] void fail(const std::string &sentence, const std::vector<tavdb::image::Finding> &findings = {});

/// A finding that there may be after a repair: an oddity that stays.
bool mayStay(const tavdb::image::Finding &finding);

/// Nothing damaged, nothing that a second repair would change, every byte somebody's, and
/// readable by the library when they are in this machine's order.
void expectMended(const tavdb::image::RawImages &images);

}  // namespace tavdb_fuzz
