// SPDX-License-Identifier: BSD-3-Clause
// Mapping sets: which files below DICOM_VAR are read, under which names, and the three steps of applying a set.
#include "support/fixture.h"

#include <gmock/gmock.h>

#include <algorithm>
#include <cstdlib>
#include <dirent.h>
#include <sys/stat.h>
#include <utility>

namespace {
using kxtest::LogCapture;
using kxtest::TempDir;
using testing::ElementsAre;
using testing::UnorderedElementsAre;

/// DICOM_VAR for the time being; null unsets it.
class DicomVar {
public:
    explicit DicomVar(const char* value)
    {
        if (const char* now = std::getenv("DICOM_VAR")) before_ = std::make_unique<std::string>(now);
        set(value);
    }
    ~DicomVar() { set(before_ ? before_->c_str() : nullptr); }
    DicomVar(const DicomVar&) = delete;
    DicomVar& operator=(const DicomVar&) = delete;

private:
    static void set(const char* value) { value ? setenv("DICOM_VAR", value, 1) : unsetenv("DICOM_VAR"); }
    std::unique_ptr<std::string> before_;
};

/// A folder for DICOM_VAR where each mapping file writes its own name into the custom field "from".
class ServerFolder {
public:
    explicit ServerFolder(std::initializer_list<const char*> files) : variable_(folder.path().c_str())
    {
        for (const char* file : files) folder.write(std::string("mappings/") + file, std::string("USER(from)=") + file);
    }
    TempDir folder;

private:
    DicomVar variable_;
};

/// @return the file that a mapping was read from, "-" for none.
std::string sourceOf(Mapping* mapping)
{
    if (mapping == nullptr) return "-";
    DcmDataset dataset;
    MappingSession session;
    session.dataset = &dataset;
    mapping->apply(session);
    const char* from = session.customFields.getFieldValue("from");
    return std::string(mapping->name) + " from " + (from != nullptr ? from : "nothing");
}

std::vector<std::string> sourcesOf(const MappingSet& set)
{
    std::vector<std::string> all;
    for (Mapping* mapping : set.mappings) all.push_back(sourceOf(mapping));
    return all;
}

TEST(MappingSet, inboundLayout)
{
    const std::string longName(200, 'L');
    const ServerFolder server({"A.map", "a.map", "B.out.map", "notes.txt", "C.map.bak", "D.MAP", "map", ".map",
                               (longName + ".map").c_str(), "global/pre.map", "global/post.map", "global/E.map"});
    const auto mappings = server.folder.path() / "mappings";
    std::filesystem::create_directory(mappings / "directory.map");
    ASSERT_EQ(mkfifo((mappings / "pipe.map").c_str(), 0600), 0); // nobody writes to it: waiting would be for ever
    std::filesystem::create_symlink("A.map", mappings / "link.map");
    std::filesystem::create_symlink("nowhere", mappings / "dangling.map");
    const MappingSet set;
    EXPECT_THAT(sourcesOf(set),
                UnorderedElementsAre("A from A.map", "a from a.map", "B.out from B.out.map", " from .map",
                                     "link from A.map", longName.substr(0, 127) + " from " + longName + ".map"));
    EXPECT_EQ(sourceOf(set.pre), "pre from global/pre.map");
    EXPECT_EQ(sourceOf(set.post), "post from global/post.map");
}

TEST(MappingSet, inboundMessagesFollowTheListing)
{
    const ServerFolder server({"A.map", "notes.txt", "B.map", "global/pre.map", "global/post.map"});
    const auto mappings = server.folder.path() / "mappings";
    std::filesystem::create_directory(mappings / "directory.map");
    std::vector<std::string> expected = {"Creating mapping 'pre':", "Line: USER(from)=global/pre.map",
                                         "assign_to_lvalue(\"global/pre.map\")"};
    DIR* directory = opendir(mappings.c_str());
    ASSERT_NE(directory, nullptr);
    while (const dirent* entry = readdir(directory)) {
        const std::string name = entry->d_name;
        expected.push_back("Scanning " + name);
        if (!name.ends_with(".map")) continue;
        expected.push_back("Reading " + name + " map file");
        if (name == "directory.map") continue;
        expected.push_back("Creating mapping '" + name.substr(0, 1) + "':");
        expected.push_back("Line: USER(from)=" + name);
        expected.push_back("assign_to_lvalue(\"" + name + "\")");
    }
    closedir(directory);
    for (const char* last :
         {"Creating mapping 'post':", "Line: USER(from)=global/post.map", "assign_to_lvalue(\"global/post.map\")"})
        expected.emplace_back(last);
    LogCapture log;
    const MappingSet set;
    EXPECT_EQ(log.messages(), expected);
}

TEST(MappingSet, outboundFlags)
{
    struct FlagCase {
        bool outbound;
        const char* aeTitle;
        bool globals;
        const char* pre;
        const char* post;
        const char* ae;
    };
    constexpr FlagCase kCases[] = {
        {false, "A", false, "-", "-", "A from A.out.map"}, // the suffix does not follow the flag
        {true, "A", false, "-", "-", "A from A.out.map"},
        {false, "A", true, "pre from global/pre.map", "post from global/post.map", "A from A.out.map"},
        {true, "A", true, "pre from global/outpre.map", "post from global/outpost.map", "A from A.out.map"},
        {true, nullptr, true, "pre from global/outpre.map", "post from global/outpost.map", "-"},
        {true, "global/A", false, "-", "-", "-"}, // a title names no file elsewhere
        {true, "B", true, "pre from global/outpre.map", "post from global/outpost.map", "-"},
    };
    const ServerFolder server({"A.map", "A.out.map", "B.map", "global/pre.map", "global/post.map", "global/outpre.map",
                               "global/outpost.map", "global/A.out.map"});
    for (const FlagCase& c : kCases) {
        const MappingSet set(c.outbound, c.aeTitle, c.globals);
        EXPECT_EQ(sourceOf(set.pre), c.pre);
        EXPECT_EQ(sourceOf(set.post), c.post);
        EXPECT_LE(set.mappings.size(), 1U);
        EXPECT_EQ(set.mappings.empty() ? "-" : sourceOf(set.mappings.front()), c.ae);
    }
    MappingSet reader;
    std::string path;
    const std::string directory = (server.folder.path() / "mappings/").string();
    const std::unique_ptr<Mapping> post(reader.readGlobal(directory, "post", true, path));
    EXPECT_EQ(sourceOf(post.get()), "post from global/outpost.map");
    EXPECT_EQ(path, directory + "global/outpost.map");
    EXPECT_EQ(reader.readGlobal(directory, "none", false, path), nullptr);
    EXPECT_EQ(path, directory + "global/none.map");
}

TEST(MappingSet, withoutADirectory)
{
    const TempDir folder; // no "mappings" in it, so the global files are not tried either
    const std::string longPath(5000, 'x');
    for (const char* variable :
         {folder.path().c_str(), "/no/such/folder", longPath.c_str(), static_cast<const char*>(nullptr)}) {
        const DicomVar dicomVar(variable);
        LogCapture log;
        MappingSet in, out(true, "A", true);
        for (const MappingSet* set : {&in, &out})
            EXPECT_TRUE(set->pre == nullptr && set->post == nullptr && set->mappings.empty());
        EXPECT_THAT(log.messages(), ElementsAre());
        MappingSession session;
        EXPECT_EQ(in.apply("A", session), 0);
        EXPECT_THAT(log.messages(), ElementsAre("Search for mapping for AEtitle A"));
    }
}

TEST(MappingSet, pathsOf1023BytesAreTheLongest)
{
    for (const std::size_t size : {1023U, 1024U}) {
        const TempDir folder;
        std::string variable = folder.path().string();
        const std::string file = "/mappings/A.map";
        while (variable.size() + file.size() < size)
            variable += '/' + std::string(std::min<std::size_t>(size - variable.size() - file.size() - 1, 200), 'd');
        folder.write(std::filesystem::path(variable + file).lexically_relative(folder.path()), "$(a)=b\n");
        ASSERT_EQ((variable + file).size(), size);
        const DicomVar dicomVar(variable.c_str());
        EXPECT_EQ(MappingSet().mappings.size(), size == 1023 ? 1U : 0U);
    }
}

TEST(MappingSet, applying)
{
    const ServerFolder server({"notes.txt"});
    server.folder.write("mappings/global/pre.map", "$(@who)=pre\n$(plain)=pre\n(0010,4000)=pre");
    server.folder.write("mappings/a.map", "(0010,4000)=concat((0010,4000),\",\",$(@who),$(plain),\":a\")\n$(plain)=a");
    server.folder.write("mappings/A.map", "(0010,4000)=wrong");
    server.folder.write("mappings/global/post.map", "(0010,4000)=concat((0010,4000),\",\",$(@who),$(plain),\":post\")");
    MappingSet set;
    const auto dataset = kxtest::sampleDataset();
    MappingSession session;
    session.dataset = dataset.get();
    LogCapture log;
    EXPECT_EQ(set.applyGlobal(GlobalPre, session), 0);
    EXPECT_EQ(log.messages().front(), "Apply global 'Pre' mapping");
    EXPECT_EQ(log.messages().back(), "Pre mapping is done");
    log.clear();
    EXPECT_EQ(set.apply("a", session), 0);
    EXPECT_THAT(log.messages(),
                ElementsAre("Search for mapping for AEtitle a", "Found mapping for AEtitle a", "Applying: (0010,4000)",
                            "Applying \"pre,pre:a\"", "..Done", "..Done", "Done applying mapping for AEtitle a"));
    log.clear();
    EXPECT_EQ(set.applyGlobal(GlobalPost, session), 0);
    EXPECT_THAT(log.messages(), ElementsAre("Apply global 'Post' mapping", "Applying: (0010,4000)",
                                            "Applying \"pre,pre:a,pre:post\"", "..Done", "Post mapping is done"));
    log.clear();
    EXPECT_EQ(set.apply("a ", session), 0); // no trimming
    EXPECT_EQ(set.applyGlobal(static_cast<GlobalMappingRule>(2), session), 0);
    EXPECT_EQ(set.applyGlobal(static_cast<GlobalMappingRule>(-1), session), 0);
    EXPECT_THAT(log.messages(), ElementsAre("Search for mapping for AEtitle a "));
    log.clear();
    MappingSet without(true, "a", false);
    EXPECT_EQ(without.applyGlobal(GlobalPre, session), 0);
    EXPECT_EQ(without.applyGlobal(GlobalPost, session), 0);
    EXPECT_THAT(log.messages(), ElementsAre("No global 'Pre' mapping to apply", "No global 'Post' mapping to apply"));
}

TEST(MappingSet, titlesAreFoundAmongManyAndInAChangedList)
{
    const std::string longName(127, 'L'); // two files are cut to this name: the first one loaded serves it
    const ServerFolder server({"A.map", "B.map", "C.map", (longName + "1.map").c_str(), (longName + "2.map").c_str()});
    MappingSet set;
    const auto applied = [&set](const std::string& title) {
        MappingSession session;
        set.apply(title.c_str(), session);
        const char* from = session.customFields.getFieldValue("from");
        return std::string(from == nullptr ? "-" : from);
    };
    std::string firstLong;
    for (Mapping* mapping : set.mappings) {
        if (firstLong.empty() && mapping->name == longName) firstLong = sourceOf(mapping).substr(longName.size() + 6);
    }
    EXPECT_EQ(applied(longName), firstLong);
    for (const char* title : {"A", "B", "C"}) EXPECT_EQ(applied(title), std::string(title) + ".map");
    EXPECT_EQ(applied("D"), "-");

    const auto replace = [](std::list<Mapping*>::iterator place, const char* text) {
        const std::string title = (*place)->name;
        delete *place;
        *place = new Mapping(text, title.c_str());
        return title;
    };
    EXPECT_EQ(applied(replace(std::next(set.mappings.begin()), "USER(from)=exchanged")), "exchanged");

    const auto third = std::next(set.mappings.begin(), 2);
    const std::string before = (*third)->name;
    delete *third;
    *third = new Mapping("USER(from)=another", "E"); // which the length and both ends do not tell
    EXPECT_NE(applied(before), "another");

    const std::string front = set.mappings.front()->name; // one goes, another comes: the length stays
    delete set.mappings.front();
    set.mappings.pop_front();
    set.mappings.push_back(new Mapping("USER(from)=added", "D"));
    EXPECT_EQ(applied("D"), "added");
    EXPECT_EQ(applied(front), front == longName ? applied(longName) : "-"); // another file has the long name
    set.mappings.push_front(new Mapping("USER(from)=first", "D"));
    EXPECT_EQ(applied("D"), "first");
    while (!set.mappings.empty()) {
        delete set.mappings.front();
        set.mappings.pop_front();
    }
    EXPECT_EQ(applied("A"), "-");
}
/// @return what a mapping of that title wrote into the custom field "from", "-" for none.
std::string appliedBy(MappingSet& set, const std::string& title)
{
    MappingSession session;
    set.apply(title.c_str(), session);
    const char* from = session.customFields.getFieldValue("from");
    return from == nullptr ? "-" : from;
}

/// The place in the list of what was loaded under that title.
std::list<Mapping*>::iterator placeOf(MappingSet& set, std::string_view title)
{
    return std::ranges::find_if(set.mappings, [title](const Mapping* mapping) { return mapping->name == title; });
}

TEST(MappingSet, aTitleIsSoughtInTheListAsItIsNow)
{
    const ServerFolder server({"A.map", "B.map", "C.map", "D.map", "E.map"});
    for (const char* title : {"A", "B", "C", "D", "E"}) { // so that each place in the list has its turn
        MappingSet set;
        const auto place = placeOf(set, title);
        const std::unique_ptr<Mapping> old(*place);
        const auto next = set.mappings.erase(place);
        const auto inserted = set.mappings.insert(next, new Mapping("USER(from)=another node", title));
        EXPECT_EQ(appliedBy(set, title), "another node");

        std::snprintf((*inserted)->name, sizeof(Mapping::name), "%s", "RENAMED");
        EXPECT_EQ(appliedBy(set, "RENAMED"), "another node");
        EXPECT_EQ(appliedBy(set, title), "-");

        const std::unique_ptr<Mapping> renamed(std::exchange(*inserted, new Mapping("USER(from)=same node", "NEW")));
        EXPECT_EQ(appliedBy(set, "NEW"), "same node");
        EXPECT_EQ(appliedBy(set, "RENAMED"), "-");

        std::list<Mapping*> copy; // all nodes and mappings are others, the titles and their order are not
        for (const Mapping* mapping : set.mappings) copy.push_back(new Mapping("USER(from)=copy", mapping->name));
        set.mappings.swap(copy);
        for (const Mapping* mapping : copy) delete mapping;
        copy.clear();
        for (const char* other : {"A", "B", "C", "D", "E", "NEW"})
            EXPECT_EQ(appliedBy(set, other), std::string_view(other) == title ? "-" : "copy") << other;
        set.mappings.push_back(new Mapping("USER(from)=second", set.mappings.front()->name));
        EXPECT_EQ(appliedBy(set, set.mappings.front()->name), "copy"); // the first of a title serves it
    }
}
} // namespace
