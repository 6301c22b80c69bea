/* SPDX-License-Identifier: Apache-2.0 */
/* What starting and ending any process costs. */
int main(void) {
    return 0;
}
