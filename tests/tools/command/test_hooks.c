/* SPDX-License-Identifier: Apache-2.0 */
/* Hooks that refuse, and one that changes what is written. */
#include <stdint.h>

int32_t refuse(uint32_t valueKey, void *data, int32_t *length);
int32_t increase(uint32_t valueKey, void *data, int32_t *length);

int32_t refuse(uint32_t valueKey, void *data, int32_t *length) {
    (void)valueKey;
    (void)data;
    (void)length;
    return -7;
}

int32_t increase(uint32_t valueKey, void *data, int32_t *length) {
    uint8_t *bytes = data;
    (void)valueKey;
    if (*length == 1)
        bytes[0] = (uint8_t)(bytes[0] + 1);
    return 0;
}
