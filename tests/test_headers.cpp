// SPDX-License-Identifier: Apache-2.0
// Nothing but the precompiled headers of the tests.
