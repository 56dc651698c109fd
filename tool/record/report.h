// SPDX-License-Identifier: BSD-3-Clause
// What happened to a file, in words for people and as a line of JSON for programs.
#pragma once

#include "tool/record/recorder.h"
#include "tool/record/runcharactersets.h"

#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>

namespace kxtool {

/// One file of a run.
struct FileReport {
    std::filesystem::path input;
    std::filesystem::path output; ///< empty when it is not known
    const char* status = "done";  ///< "done", "failed", or of a dry run "dry"
    std::string error;            ///< why it failed
    double milliseconds = 0;
    std::uintmax_t otherNames = 0; ///< hard links that were parted from it
};

/// @param recording null when the rules were not applied.
/// @param dataset as the rules left it; null with the recording.
/// @return one JSON object, without line feed. Its texts are UTF-8; bytes that are in no character set are \xNN. A file name
///         that is not UTF-8 is there twice: readable, and as "input_bytes" or "output_bytes" with %NN for every byte
///         that is no letter, digit, or one of "/._-".
std::string jsonLine(const FileReport& file, const Recording* recording, DcmDataset* dataset);

/// @param dataset as the rules left it.
/// @return the changes, a line each: "ct.dcm: ~ (0010,0010) PN [before] -> [after] name.map:1".
std::string changeLines(const std::filesystem::path& file, const Recording& recording, DcmDataset& dataset);

/// What was at a place and what is there now, in UTF-8.
struct ReadableChange {
    std::optional<std::string> before; ///< none for absent
    std::optional<std::string> after;
};

/// @return the texts of a change, each from the character set that was in force when it stood there.
ReadableChange readable(const Change& change, const RunCharacterSets& sets);

/// @return "name.map:1", where a step's rule stands.
std::string placeOfRule(const Step& step);

} // namespace kxtool
