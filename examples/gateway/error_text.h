/* SPDX-License-Identifier: Apache-2.0 */
/*
 * Names and sentences of the library's codes. tavdb_errors.h holds them as a
 * list that a program expands into what it needs; the library has no function
 * for them.
 */
#ifndef GATEWAY_ERROR_TEXT_H
#define GATEWAY_ERROR_TEXT_H

#include <stdint.h>

struct errorText {
    uint32_t code;
    const char *name;     /* "OFF_STEP" for TAVDB_ERR_OFF_STEP */
    const char *sentence; /* what happened */
    const char *action;   /* what a caller does about it */
};

/*
 * Never null. A code that the list does not have comes from the platform, and
 * gets a text that says so.
 */
const struct errorText *findErrorText(uint32_t code);

#endif
