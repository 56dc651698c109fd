// SPDX-License-Identifier: BSD-3-Clause
// What all rooms do with texts: byte by byte, in no locale. Letters are those of ASCII.
#pragma once

#include <dcmtk/config/osconfig.h>
#include <dcmtk/dcmdata/dctagkey.h>

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace kxtool {

/// @return the text without the blanks at both ends.
std::string_view trimmed(std::string_view text, const char* blanks = " ");

/// @return the text in lower case.
std::string lowered(std::string_view text);

/// @return whether a text begins so, in upper or lower case.
bool startsWithAnyCase(std::string_view text, std::string_view begin);

/// @return the parts between the separators, one at least.
std::vector<std::string_view> split(std::string_view text, char separator);

/// @return the text as part of a URI (RFC 3986): every byte as %NN that is no letter, no digit and none of "-._~/".
std::string percentEncoded(std::string_view text);

/// @return "(0008,103e)", as rules have it.
std::string keyText(const DcmTagKey& key);

/// @return a number of one to four hexadecimal digits and nothing else; none for other texts.
std::optional<Uint16> readHex(std::string_view text);

} // namespace kxtool
