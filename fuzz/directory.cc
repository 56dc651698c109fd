// SPDX-License-Identifier: BSD-3-Clause
// The mappings directory: entries of any name and content are made below a folder of this process in memory, and the
// sets that are loaded from there are compared with what was put in.
//
// The input is "kind name LF content NUL", over and over; kind is a byte: "f" a file, "d" a folder, "p" a pipe, "l" a
// link to the entry that its content names, "g" a file in the folder "global". Other kinds are files, too.
#include "support/harness.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <set>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

using kxfuzz::require;

namespace {

constexpr std::size_t kMaxEntries = 8;
constexpr std::size_t kMaxNameBytes = 127; // of a mapping; longer ones are cut
constexpr const char* kSaysZero = "a set says 0";
constexpr std::string_view kSuffix = ".map";
constexpr std::string_view kOutboundSuffix = ".out.map";

/// DICOM_VAR for this process alone, below TMPDIR or where memory backs the files; emptied after each input.
class Root {
public:
    Root()
    {
        const char* base = std::getenv("TMPDIR");
        path_ = std::string(base != nullptr ? base : "/dev/shm") + "/kxfuzz-XXXXXX";
        require(mkdtemp(path_.data()) != nullptr, "a folder can be made below TMPDIR or /dev/shm");
        require(setenv("DICOM_VAR", path_.c_str(), 1) == 0, "the environment can be set");
    }
    Root(const Root&) = delete;
    Root& operator=(const Root&) = delete;
    ~Root() { std::filesystem::remove_all(path_); }

    std::string mappings() const { return path_ + "/mappings"; }

private:
    std::string path_;
};

const Root& root()
{
    static const Root folder;
    return folder;
}

struct Entry {
    char kind;
    std::string name;
    std::string content;
};

std::vector<Entry> readEntries(std::string_view input)
{
    std::vector<Entry> entries;
    while (!input.empty() && entries.size() < kMaxEntries) {
        const std::string_view record = input.substr(0, input.find('\0'));
        input.remove_prefix(std::min(input.size(), record.size() + 1));
        if (record.empty()) continue;
        const std::size_t lineFeed = std::min(record.find('\n'), record.size());
        Entry entry{record.front(), std::string(record.substr(1, std::max<std::size_t>(lineFeed, 1) - 1)),
                    std::string(record.substr(std::min(lineFeed + 1, record.size())))};
        std::replace(entry.name.begin(), entry.name.end(), '/', '_');
        if (entry.name.empty() || entry.name == "." || entry.name == "..") entry.name = "A.map";
        entries.push_back(std::move(entry));
    }
    return entries;
}

void writeFile(const std::string& path, std::string_view content)
{
    if (std::FILE* file =
            std::fopen(path.c_str(), "wx")) { // a name of more than 255 bytes fails, and one that is taken
        std::fwrite(content.data(), 1, content.size(), file);
        std::fclose(file);
    }
}

void make(const Entry& entry)
{
    const std::string path = root().mappings() + '/' + (entry.kind == 'g' ? "global/" : "") + entry.name;
    if (entry.kind == 'd') {
        std::ignore = mkdir(path.c_str(), 0700);
    } else if (entry.kind == 'p') {
        std::ignore = mkfifo(path.c_str(), 0600);
    } else if (entry.kind == 'l') {
        std::string target = entry.content;
        std::replace(target.begin(), target.end(), '/', '_');
        std::ignore = symlink(target.c_str(), path.c_str());
    } else {
        writeFile(path, entry.content);
    }
}

/// What a file that stands there must have become. @return its bytes; nothing when it is no regular file.
std::optional<std::string> regularFile(const std::string& path)
{
    struct stat status = {};
    if (stat(path.c_str(), &status) != 0 || !S_ISREG(status.st_mode)) return std::nullopt;
    std::string bytes(static_cast<std::size_t>(status.st_size), '\0');
    std::FILE* file = std::fopen(path.c_str(), "r");
    require(file != nullptr, "a regular file can be read");
    bytes.resize(std::fread(bytes.data(), 1, bytes.size(), file));
    std::fclose(file);
    return bytes;
}

/// A mapping has as many rules as its text: where every line is short and free of NUL, the reader of texts counts them.
void requireRulesOf(const Mapping& mapping, const std::string& bytes)
{
    if (bytes.size() >= 2039) return;
    const Mapping expected(bytes.c_str(), "");
    require(mapping.assignments.size() == expected.assignments.size(), "a file's mapping has the file's rules");
}

void checkGlobal(const Mapping* mapping, std::string_view name, const char* file)
{
    const std::optional<std::string> bytes = regularFile(root().mappings() + "/global/" + file);
    require((mapping != nullptr) == bytes.has_value(), "a global mapping is there when its file is");
    if (mapping == nullptr) return;
    require(mapping->name == name, "a global mapping has its name");
    requireRulesOf(*mapping, *bytes);
}

void checkInbound(MappingSet& set)
{
    std::multiset<std::string> expected;
    for (const auto& entry : std::filesystem::directory_iterator(root().mappings())) {
        const std::string name = entry.path().filename().string();
        if (!name.ends_with(kSuffix) || !regularFile(entry.path().string())) continue;
        expected.insert(name.substr(0, std::min(name.size() - kSuffix.size(), kMaxNameBytes)));
    }
    std::multiset<std::string> loaded;
    for (const Mapping* mapping : set.mappings) {
        loaded.insert(mapping->name);
        const std::string name(mapping->name);
        if (name.size() == kMaxNameBytes) continue; // perhaps cut: its file has a longer name
        requireRulesOf(*mapping, *regularFile(root().mappings() + '/' + name + std::string(kSuffix)));
    }
    require(loaded == expected, "the set holds every .map file, and nothing else");
    checkGlobal(set.pre, "pre", "pre.map");
    checkGlobal(set.post, "post", "post.map");
}

void checkOutbound(const std::string& title, bool outbound)
{
    const MappingSet set(outbound, title.c_str(), true);
    const std::string file = root().mappings() + '/' + title + std::string(kOutboundSuffix);
    require(set.mappings.size() == (regularFile(file) ? 1U : 0U), "the outbound set holds the title's file");
    checkGlobal(set.pre, "pre", outbound ? "outpre.map" : "pre.map");
    checkGlobal(set.post, "post", outbound ? "outpost.map" : "post.map");
    if (set.mappings.empty()) return;
    const std::string name(set.mappings.front()->name);
    require(name == title.substr(0, kMaxNameBytes), "an outbound mapping is named as the title");
}

/// Whether a mapping can be applied without its texts outgrowing this process.
bool staysSmall(const Mapping* mapping)
{
    const std::unique_ptr<DcmDataset> dataset = kxfuzz::sampleCopy();
    MappingSession session = kxfuzz::sampleSession(dataset.get());
    return mapping == nullptr || kxfuzz::applyStepwise(*mapping, session);
}

/// A run as a server makes it, for every title in turn; what rules do is another target's matter.
void applyAll(MappingSet& set)
{
    if (!staysSmall(set.pre) || !staysSmall(set.post)) return;
    for (const Mapping* mapping : set.mappings) {
        if (!staysSmall(mapping)) continue;
        const std::unique_ptr<DcmDataset> dataset = kxfuzz::sampleCopy();
        MappingSession session = kxfuzz::sampleSession(dataset.get());
        for (const int rule : {0, 2, -1}) require(set.applyGlobal(GlobalMappingRule{rule}, session) == 0, kSaysZero);
        require(set.apply(mapping->name, session) == 0, kSaysZero);
        require(set.applyGlobal(GlobalPost, session) == 0, kSaysZero);
    }
}

/// The caller of the check names the file: it waits for a pipe's writer as `fopen` does, so none is given to it.
void checkSyntax(const std::string& path)
{
    struct stat status = {};
    if (stat(path.c_str(), &status) == 0 && S_ISFIFO(status.st_mode)) return;
    char* message = checkSyntaxInner(path.c_str());
    require(message != nullptr, "the syntax check has an answer");
    require((message == errorMsgEmpty) == (*message == '\0'), "the empty answer is the static one");
    if (message != errorMsgEmpty) delete[] message;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    kxfuzz::begin(size);
    const std::vector<Entry> entries = readEntries({reinterpret_cast<const char*>(data), size});
    std::filesystem::create_directories(root().mappings() + "/global");
    for (const Entry& entry : entries) make(entry);

    MappingSet inbound;
    checkInbound(inbound);
    applyAll(inbound);
    for (const Entry& entry : entries) {
        checkOutbound(entry.name.substr(0, entry.name.find(kOutboundSuffix)), size % 2 == 0);
        checkSyntax(root().mappings() + '/' + entry.name);
    }
    std::filesystem::remove_all(root().mappings());
    return 0;
}
