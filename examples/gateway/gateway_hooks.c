/* SPDX-License-Identifier: Apache-2.0 */
/*
 * Hooks of two leaves. A hook runs inside the process that reads or writes the
 * leaf, in its thread, whichever program that is: so it is short, keeps nothing
 * between calls, and leaves standard output to its host. hooks.conf ties these
 * functions to hook ids, gateway.yaml the ids to leaves. No real driver is
 * told anything here: a line on standard error stands in for it.
 */
#include <stdint.h>
#include <stdio.h>
#include <unistd.h>

#include "tavdb_plugin.h"

/* tavDBMHookFunction of tavdb_plugin.h, three times. TAVDB_API makes them findable. */
TAVDB_API int32_t checkChannel(uint32_t valueKey, void *data, int32_t *length);
TAVDB_API int32_t applyChannel(uint32_t valueKey, void *data, int32_t *length);
TAVDB_API int32_t noteSecretReader(uint32_t valueKey, void *data, int32_t *length);

/* The range of the leaf is what the law allows. The amplifier was measured up to here only. */
static const unsigned int highestMeasuredChannel = 11;
static const int32_t resultNotMeasured = 45; /* our own; the caller finds it as the error detail */
static const int32_t resultWrongLength = 46;

/* Before a write, and before the range is checked: the bytes may be anything. */
int32_t checkChannel(uint32_t valueKey, void *data, int32_t *length) {
    (void)valueKey; /* the rule is the same for every value of the leaf */
    if (*length != 1)
        return resultWrongLength;
    const unsigned int channel = *(const uint8_t *)data;
    if (channel <= highestMeasuredChannel)
        return 0;
    fprintf(stderr, "hook: radio 0 is not measured on channel %u\n", channel);
    return resultNotMeasured;
}

/*
 * After a write that the range admitted: the value is stored, now it takes
 * effect. A write of the leaf's default value comes here as well, with another
 * value key; a real driver's hook would compare the key with that of the
 * current value (tavDBMGetCurrentValueKey).
 */
int32_t applyChannel(uint32_t valueKey, void *data, int32_t *length) {
    (void)valueKey;
    (void)length;
    fprintf(stderr, "hook: telling the driver of radio 0: channel %u\n", (unsigned int)*(const uint8_t *)data);
    return 0;
}

/* Before a read. A result that is not 0 would refuse it. */
int32_t noteSecretReader(uint32_t valueKey, void *data, int32_t *length) {
    (void)data; /* where the value will go; nothing is there yet */
    (void)length;
    fprintf(stderr, "hook: process %ld reads the secret with value key %u\n", (long)getpid(), (unsigned int)valueKey);
    return 0;
}
