// SPDX-License-Identifier: BSD-3-Clause
// DICOM PS3.10 section 7.1: a preamble, "DICM" and the file meta information; some write one or the other, or neither.
#include "tool/dicom/foreignfile.h"

#include "tool/system/descriptor.h"

#include <dcmtk/config/osconfig.h>
#include <dcmtk/dcmdata/dcuid.h>

#include <cerrno>
#include <fcntl.h>
#include <string>
#include <string_view>
#include <unistd.h>

namespace kxtool {
namespace {

constexpr std::size_t kPreambleBytes = 128;
constexpr std::size_t kHeadBytes = 1024; // the first elements of the file meta information
constexpr std::string_view kMark = "DICM";

std::string headOf(const std::filesystem::path& file)
{
    const Descriptor opened(open(file.c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY | O_NONBLOCK));
    std::string head(kHeadBytes, '\0');
    std::size_t size = 0;
    while (opened.isOpen() && size < head.size()) {
        const ssize_t count = read(opened.get(), head.data() + size, head.size() - size);
        if (count < 0 && errno == EINTR) continue;
        if (count <= 0) break;
        size += static_cast<std::size_t>(count);
    }
    head.resize(size);
    return head;
}

/// @return what follows preamble and mark; all of it where they are missing.
std::string_view elementsIn(std::string_view head)
{
    if (head.size() >= kPreambleBytes && head.substr(kPreambleBytes).starts_with(kMark))
        return head.substr(kPreambleBytes + kMark.size());
    return head.starts_with(kMark) ? head.substr(kMark.size()) : head;
}

/// Data elements begin with the two bytes of an even group below 0x0100, in one order or the other; texts and programs with
/// no byte of zero.
bool beginsWithElement(std::string_view bytes)
{
    if (bytes.size() < 2) return false;
    const bool isLittleEndian = bytes[1] == '\0';
    const auto group = static_cast<unsigned char>(bytes[isLittleEndian ? 0 : 1]);
    return bytes[isLittleEndian ? 1 : 0] == '\0' && group != 0 && group % 2 == 0;
}

/// Media Storage SOP Class UID (0002,0002) says so.
bool isDirectory(std::string_view elements)
{
    const std::size_t at = elements.find(std::string_view("\x02\x00\x02\x00UI", 6));
    constexpr std::size_t kHeaderBytes = 8;
    if (at == std::string_view::npos || elements.size() < at + kHeaderBytes) return false;
    const std::string_view uid = elements.substr(at + kHeaderBytes, static_cast<unsigned char>(elements[at + 6]));
    return uid.substr(0, uid.find('\0')) == UID_MediaStorageDirectoryStorage;
}

} // namespace

bool isForeignFile(const std::filesystem::path& file)
{
    const std::string head = headOf(file);
    const std::string_view elements = elementsIn(head);
    if (elements.size() < head.size()) return isDirectory(elements);
    // A preamble of zeros without the mark, or a sector of them that a disk lost: damaged rather than foreign.
    const bool isDamaged = head.find_first_not_of('\0') >= std::min(head.size(), kPreambleBytes);
    return !isDamaged && (!beginsWithElement(elements) || isDirectory(elements));
}

} // namespace kxtool
