/* SPDX-License-Identifier: Apache-2.0 */
/*
 * The table is the list of tavdb_errors.h and nothing else, so it is complete
 * whenever the list is.
 */
#include "error_text.h"

#include <stddef.h>

#include "tavdb_errors.h"

#define ERROR_TEXT(code, name, sentence, action) {code, #name, sentence, action},
static const struct errorText errorTexts[] = {TAVDB_ERROR_LIST(ERROR_TEXT)};
#undef ERROR_TEXT

static const struct errorText otherCode = {0, "PLATFORM", "a code of the platform", "see the platform's documentation"};

const struct errorText *findErrorText(uint32_t code) {
    for (size_t i = 0; i < sizeof errorTexts / sizeof errorTexts[0]; i++)
        if (errorTexts[i].code == code)
            return &errorTexts[i];
    return &otherCode;
}
