// SPDX-License-Identifier: Apache-2.0
#include "constraint/db_constraint_record.h"

#include <string.h>

namespace tavdb {

void *newConstraint(tavDBMSession *session, void *record, int32_t sizeBytes, Site site) {
    const auto write = [&](OpenMedium &medium, const tavDBMMediaEntry &entry, uint32_t key) -> void * {
        memcpy(record, &key, sizeof key);
        const int32_t code = writeTo(medium, entry, session, kNewConstraint, key, record, sizeBytes, site);
        return code == 0 ? record : nullptr;
    };
    return reserveConstraint(session, record, static_cast<uint32_t>(sizeBytes), site, write);
}

}  // namespace tavdb
