// SPDX-License-Identifier: BSD-3-Clause
// What became of one dataset, for people and for programs: the changes, the trace of the rules, and what they made
// wrong.
#pragma once

#include "tool/record/consequences.h"
#include "tool/record/recorder.h"
#include "tool/record/runcharactersets.h"

#include <nlohmann/json_fwd.hpp>

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace kxtool {

/// How a report is to look.
struct Look {
    std::size_t width = 0; ///< columns; 0 for no limit
    bool isColored = false;
};

/// One recorded run and its dataset, both of which must outlive it.
class RunReport {
public:
    /// @param dataset as the run left it. @param wanted which consequences count.
    /// @param begin the number of the first step that is looked at: what those before it did is left out.
    RunReport(const Recording& recording, DcmDataset& dataset, const ConsequenceSwitches& wanted = {},
              std::size_t begin = 0);

    const std::vector<Consequence>& consequences() const { return consequences_; }

    /// A line for each place that is not as it was: sign, tag, name, VR, before, after, rules.
    std::string changes(const Look& look) const;

    /// A line for each rule: where it stands, its target and value, what it did; and what its built-ins said.
    std::string trace(const Look& look) const;

    /// A line for each consequence.
    std::string warnings(const Look& look) const;

    /// "1 added, 2 changed, 0 deleted; 1 warning"
    std::string summary() const;

    /// @return {"changes": [...], "warnings": [...], "failure": null or text}, and "trace": [...] on demand; the members
    ///         are told in the help of "kxmap try". All texts are UTF-8.
    nlohmann::ordered_json json(bool withTrace) const;

    /// A text as tables show it: as it is where that is clear; in quotes where it is empty, has blanks at its ends, or
    /// could be taken for "-" (none) or "NULL".
    static std::string shown(const std::optional<std::string>& text, const CharacterSet& set);

private:
    static std::string shownReadable(const std::optional<std::string>& text); // of UTF-8
    nlohmann::ordered_json changeJson(const Change& change) const;
    nlohmann::ordered_json stepJson(const Step& step) const;

    const Recording& recording_;
    const std::size_t begin_;
    const std::vector<Change> changes_;
    RunCharacterSets sets_;
    std::vector<Consequence> consequences_;
};

/// @return an array of {"warning", "kind", "place", "name", "text", "rule"}, in UTF-8.
nlohmann::ordered_json warningsJson(const std::vector<Consequence>& consequences);

/// @return a text from a mapping file or a file's name as UTF-8: they have no character set, so that what is none is spelled
///         out byte by byte.
std::string asUtf8(std::string_view text);

/// @return {"file", "line", "text"} of the rule of a step.
nlohmann::ordered_json ruleJson(const Step& step);

/// @param unseen what an element holds. @return that rules see no text in it, as a sentence.
std::string noteOnUnseen(const std::string& unseen);

/// @return the name of an element's place in the data dictionary or in the server's block: "PatientName"; empty for an
///         unknown one and for places that are no elements.
std::string placeName(const Place& place);

} // namespace kxtool
