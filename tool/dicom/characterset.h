// SPDX-License-Identifier: BSD-3-Clause
// Texts of a dataset, as people read them: from its Specific Character Set to UTF-8.
#pragma once

#include <dcmtk/config/osconfig.h>
#include <dcmtk/dcmdata/dcvr.h>

#include <optional>
#include <string>
#include <string_view>

class DcmItem;

namespace kxtool {

/// @return whether texts of this VR are in the Specific Character Set (DICOM PS3.5 section 6.1.2.3); others are ASCII.
bool hasCharacterSet(DcmEVR vr);

/// One value of Specific Character Set (0008,0005).
class CharacterSet {
public:
    /// @param terms the attribute's text, defined terms with "\" between them; empty for ASCII.
    explicit CharacterSet(std::string terms) : terms_(std::move(terms)) {}

    /// @return the character set that applies to an item: its own, or that of the item or dataset around it.
    static CharacterSet of(DcmItem& item);

    const std::string& terms() const { return terms_; }

    /// @return "ISO_IR 100", or "ASCII" where the attribute is absent or empty.
    std::string name() const { return terms_.empty() ? "ASCII" : terms_; }

    /// @return whether its single bytes are letters of one alphabet, ISO 8859 or TIS 620.
    bool isSingleByte() const;

    /// @return the text in UTF-8; none when it has bytes that are not in this character set, and when DCMTK does not
    ///         know the character set. Code extensions are followed (ISO 2022).
    std::optional<std::string> toUtf8(std::string_view text) const;

    /// @return the text for machines: UTF-8, with the bytes that are in no character set as \xNN. Control bytes stay.
    std::string readable(std::string_view text) const;

private:
    std::string terms_;
};

/// @return whether all bytes are ASCII, and none begins an escape sequence: the same in every character set.
bool isPlainAscii(std::string_view text);

} // namespace kxtool
