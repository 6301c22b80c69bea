// SPDX-License-Identifier: Apache-2.0
// What became of every parameter of a description: expressed fully, with losses,
// or not at all, and what exactly was lost. The counts always add up; nothing is
// dropped without a line here.
#pragma once

#include <array>
#include <cstddef>
#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace tavdb::image {

/// What a database cannot hold of a parameter that it does hold.
enum class Loss {
    units,
    pattern,
    minLength,
    lengthGaps,
    lengthCut,
    lengthAssumed,
    rangeGaps,
    listItems,
    listCount,
    listBrackets,
    reference,
    enumerationReference,
    enumerationMarks,
    lexicalForm,
    defaultRefused,
    defaultKind,
    command,
    facetIgnored,
    count
};

/// Why a parameter is not in the database at all.
enum class Omission { unknownType, badName, nested, duplicate, nameTaken, count };

inline constexpr auto kLossKinds = static_cast<size_t>(Loss::count);
inline constexpr auto kOmissionKinds = static_cast<size_t>(Omission::count);

struct KindText {
    std::string_view key;       ///< stable, for programs
    std::string_view sentence;  ///< for people
};
const KindText &describe(Loss loss);
const KindText &describe(Omission omission);

struct LossDetail {
    Loss kind;
    std::string what;
};

class Report {
public:
    /// A parameter that is in the database; without details it is expressed fully.
    void addExpressed(const std::string &path, const std::vector<LossDetail> &details);
    void addOmitted(const std::string &path, Omission why, const std::string &what);
    /// Something that is no property of a configuration value, for example an access right of a protocol.
    void addNote(const std::string &what, size_t times = 1);

    size_t parameters() const {
        return full + lossy + omitted;
    }
    size_t expressedFully() const {
        return full;
    }
    size_t expressedWithLosses() const {
        return lossy;
    }
    size_t notExpressed() const {
        return omitted;
    }
    /// Parameters that suffered this loss, however often each.
    size_t count(Loss loss) const {
        return losses[static_cast<size_t>(loss)];
    }
    size_t count(Omission omission) const {
        return omissions[static_cast<size_t>(omission)];
    }
    const std::map<std::string, size_t> &notes() const {
        return noteCounts;
    }
    /// "PATH: KEY: what", in the order of the description.
    const std::vector<std::string> &lines() const {
        return details;
    }

private:
    void addLine(const std::string &path, const KindText &kind, const std::string &what);

    size_t full = 0;
    size_t lossy = 0;
    size_t omitted = 0;
    std::array<size_t, kLossKinds> losses{};
    std::array<size_t, kOmissionKinds> omissions{};
    std::map<std::string, size_t> noteCounts;
    std::vector<std::string> details;
};

/// The counts as a table, a few lines without the details.
std::string formatSummary(const Report &report);

}  // namespace tavdb::image
