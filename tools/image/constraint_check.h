// SPDX-License-Identifier: Apache-2.0
// Whether a constraint admits a value, by the same arithmetic as the library's
// own checks, so that what passes here is never refused by a later write.
#pragma once

#include <string>

#include "image/model.h"

namespace tavdb::image {

enum class Verdict { admitted, outside, offStep, notListed };

Verdict judge(Type type, const Constraint &constraint, const Value &value);

/// Empty when the value is admitted, else for example
/// "value 5 is outside 300..4000000 step 100".
std::string refusal(Type type, const Constraint &constraint, const Value &value);

/// The same without its subject: "is outside 300..4000000 step 100".
std::string complaintAbout(Type type, const Constraint &constraint, const Value &value);

/// "300..4000000 step 100", "0 (off), 1 (on)"; empty without a constraint.
std::string formatConstraint(Type type, const Constraint &constraint);

/// What may be written for the elements of an enumeration: "off, on".
std::string formatChoices(Type type, const Constraint &constraint);

}  // namespace tavdb::image
