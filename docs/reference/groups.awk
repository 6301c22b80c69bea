# SPDX-License-Identifier: Apache-2.0
# Shows a header to doxygen: the comment at the head of a group ("@name ... @{") stands for
# everything in the group that has no comment of its own. Lines keep their numbers.
/^ *\/\*\*/ { inComment = 1 }
/@\{/ { inGroup = 1; opensGroup = 1 }
/@\}/ { inGroup = 0 }
{
    isDeclaration = /^(TAVDB_API|typedef struct|#define) / || /^    [A-Za-z].*\(.*\{$/
    if (inGroup && !inComment && isDeclaration && !hasComment)
        sub(/^ */, "&/** As the group says. */ ")
    if (inComment && /\*\/$/) {
        hasComment = !opensGroup
        inComment = opensGroup = 0
    } else if (!inComment) {
        hasComment = 0
    }
    print
}
