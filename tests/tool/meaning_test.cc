// SPDX-License-Identifier: BSD-3-Clause
// What kxmap check tells of the meaning of rules: files of mistakes that it has to see, each by its name, and files of
// good rules of which it must say nothing.
#include "support/fixture.h"
#include "tool/lint/lint.h"
#include "tool/rules/mappingsfolder.h"

#include <algorithm>
#include <fstream>
#include <map>
#include <string>
#include <vector>

using namespace kxtool;
using namespace kxtest;

namespace {

/// Rules below a line "# name: what they are".
struct Block {
    std::string name;
    std::string title;
    std::vector<std::string> lines;

    std::string text() const
    {
        std::string all;
        for (const std::string& line : lines) all += line + '\n';
        return all;
    }
};

std::vector<Block> blocksOf(const char* name)
{
    std::ifstream file(std::string(KXDCM_SOURCE_DIR "/tests/tool/check/") + name);
    std::vector<Block> blocks;
    bool isInside = false;
    for (std::string line; std::getline(file, line); isInside = !line.empty()) {
        if (line.empty()) continue;
        if (isInside) {
            blocks.back().lines.push_back(line);
            continue;
        }
        const std::size_t colon = line.find(':');
        blocks.push_back({line.substr(2, colon - 2), line.substr(colon + 2), {}});
    }
    return blocks;
}

std::vector<Finding> findingsIn(const RuleFile& file)
{
    return lintAlone({&file, 1}, CheckSwitches());
}

std::vector<std::string> namesOf(const std::vector<Finding>& findings)
{
    std::vector<std::string> names;
    for (const Finding& finding : findings) names.emplace_back(infoOf(finding.check).name);
    return names;
}

/// @return the names of what is found in a mappings folder; each line is "FILE: RULE".
std::vector<std::string> namesInFolder(const Block& block)
{
    std::map<std::string, std::string> texts;
    for (const std::string& line : block.lines) {
        const std::size_t colon = line.find(": ");
        texts[line.substr(0, colon)] += line.substr(colon + 2) + '\n';
    }
    const TempDir dir;
    for (const auto& [name, text] : texts) dir.write("mappings/" + name, text);
    const auto folder = dir.path() / "mappings";
    std::vector<RuleFile> files;
    for (const auto& path : mappingFilesOf(folder)) files.push_back(readRuleFile(path));
    return namesOf(lintTogether(folder, files, CheckSwitches()));
}

bool has(const std::vector<std::string>& names, const std::string& name)
{
    return std::ranges::find(names, name) != names.end();
}

} // namespace

TEST(ToolMeaning, mistakesAreSeen)
{
    const std::vector<Block> blocks = blocksOf("meaning.txt");
    EXPECT_GT(blocks.size(), 200U);
    for (const Block& block : blocks) {
        const RuleFile file = readRuleText(block.text(), "a.map");
        EXPECT_TRUE(has(namesOf(findingsIn(file)), block.name)) << block.name << ": " << block.title << '\n'
                                                                << block.text();
    }
    for (const Block& block : blocksOf("meaning-folders.txt"))
        EXPECT_TRUE(has(namesInFolder(block), block.name)) << block.name << ": " << block.title << '\n' << block.text();
}

TEST(ToolMeaning, ofGoodRulesNothingIsSaid)
{
    const std::vector<Block> blocks = blocksOf("fine.txt");
    EXPECT_GT(blocks.size(), 200U);
    const std::vector<std::string> none;
    for (const Block& block : blocks) {
        const RuleFile file = readRuleText(block.text(), "a.map");
        EXPECT_EQ(namesOf(findingsIn(file)), none) << block.title << '\n' << block.text();
    }
    for (const Block& block : blocksOf("fine-folders.txt"))
        EXPECT_EQ(namesInFolder(block), none) << block.title << '\n' << block.text();
}

TEST(ToolMeaning, saysWhatHappens)
{
    struct Case {
        const char* rules;
        const char* message;
    };
    constexpr Case kCases[] = {
        {R"r((0020,0013)=div((0020,0013),0))r", R"r(always NULL: the target is deleted)r"},
        {R"r((0008,103e)=if(contains(toUpper((0008,1030)),"head"),"x",(0008,103e)))r",
         R"r(always NULL: this is never true)r"},
        {R"r((0008,103e)=if(NULL(),"x",(0008,103e)))r", R"r(always NULL: this is never true)r"},
        {R"r((0010,1010)=dicomAge((0008,0030),(0010,0030)))r",
         R"r(a value of TM is no date: the call is always NULL)r"},
        {R"r((0008,103e)=if(strlen((0008,1030)),"x",(0008,103e)))r", R"r(a number is always true, 0 and -1 as well)r"},
        {R"r((0008,103e)=if(concat("x",(0008,1030)),"y",(0008,103e)))r", R"r(always true: it is never NULL)r"},
        {R"r((0008,103e)=if(equals((0008,0060),"ct"),"x",(0008,103e)))r",
         R"r(hardly ever equal: no value of CS is "ct")r"},
        {R"r((0008,103e)=if(equals((0008,1030),"HEAD "),"x",(0008,103e)))r",
         R"r(hardly ever equal: the blanks at the end of a value are no part of its text)r"},
        {R"r((0008,103e)=if(equals(toUpper((0008,1030)),"Head"),"x",(0008,103e)))r",
         R"r(never equal, whatever the dataset holds)r"},
        {R"r((0008,103e)=if(equals(substr((0018,0015),0,4),"head"),"x",(0008,103e)))r",
         R"r(hardly ever equal: what it is compared with is made of other letters)r"},
        {R"r((0008,103e)=if(equals((0008,0060),"CT"),if(equals((0008,0060),"MR"),"a","b"),"c"))r",
         R"r(never equal, whatever the dataset holds)r"},
        {R"r((0020,0013)=mul((0020,0013),0))r", R"r(this is always "0")r"},
        {R"r((0008,103e)=if((0018,0015),"a","a"))r", R"r(both branches are the same: the condition decides nothing)r"},
        {R"r((0008,103e)=translate((0008,1030),"unknown"))r", R"r(a table without pairs: this is always the default)r"},
        {R"r((0008,103e)=toUpper(toUpper((0008,1030))))r", R"r(the same call in itself changes nothing more)r"},
        {R"r((0008,103e)=or(concat("CT ",(0018,0015)),(0008,1030)))r",
         R"r(this is never reached: what stands before it is never NULL)r"},
        {R"r((0010,1010)=dicomAge((0010,0030),(0008,0020)))r",
         R"r(the birth date stands first: nobody has an age before that, so it is NULL)r"},
        {R"r((0008,103e)=if(between(100,120,(0018,0060)),"soft",(0008,103e)))r",
         R"r(the bounds stand before the value)r"},
        {R"r((0008,103e)=if(contains("HEAD",(0008,1030)),"x",(0008,103e)))r",
         R"r(an element is looked for in this text, not the text in the element)r"},
        {R"r((0008,103e)=substr(0,3,(0008,1030)))r", R"r(the number stands where the text belongs)r"},
        {R"r((0008,103e)=split((0008,1030)," - ",2))r", R"r(only the first byte of this parts the text: " ")r"},
        {R"r((0020,0013)=add((0020,0013),"1.5"))r",
         R"r(only 1 is read of this: whole numbers end at the first byte that is no digit)r"},
        {R"r((0020,0013)=mul(100000,100000))r", R"r(numbers have 32 bits: this one becomes another)r"},
        {R"r((0020,0013)=div((0020,000e),10))r", R"r(a value of UI is no number)r"},
        {R"r((0008,103e)=concat((0028,0010)," rows"))r",
         R"r(rules see no text in values of US: this is an empty text, whatever the value)r"},
        {R"r((0008,103e)=(0028,0010))r",
         R"r(SeriesDescription (0008,103e): rules see no text in values of US, so this writes an empty value)r"},
        {R"r((0008,1030)=or(SEQ(0010,0010,0,0008,0104),(0008,1030)))r",
         R"r(PatientName (0010,0010) is no sequence: this leads nowhere, and is always NULL)r"},
        {R"r(SEQ(7fe0,0010,0,0008,0104)="Knee")r",
         R"r(PixelData (7fe0,0010) is no sequence: this leads nowhere, and nothing is written)r"},
        {R"r((0008,103e)=or((0008,1031),(0008,103e)))r",
         R"r(the data dictionary does not know (0008,1031): hardly a dataset has it)r"},
        {R"r((0008,103e)=or((0002,0016),(0008,103e)))r",
         R"r(group 0002 is no part of a dataset: this is always NULL)r"},
        {R"r((0020,000e)="1.2.3.4")r",
         R"r(SeriesInstanceUID (0020,000e): one UID for all that this rule sees makes one object, series or study of them)r"},
        {R"r((0020,000d)=if(equals((0008,0060),"CT"),NULL(),(0020,000d)))r",
         R"r(StudyInstanceUID (0020,000d) is gone with this: datasets have to have it)r"},
        {R"r((0028,0011)=NULL())r", R"r(Columns (0028,0011): without it the pixels cannot be read)r"},
        {R"r((0028,0010)="512")r",
         R"r(Rows (0028,0010): another value does not change the pixels: they are read wrongly then)r"},
        {R"r((0008,0031)=(0008,0020))r", R"r(SeriesTime (0008,0031): a value of DA is none of TM)r"},
        {R"r((0018,0050)=concat((0018,0050)," mm"))r",
         R"r(SliceThickness (0018,0050): this has a "m", which values of DS have not)r"},
        {R"r((0018,0015)=toLower((0018,0015)))r",
         R"r(BodyPartExamined (0018,0015): CS has letters in upper case alone)r"},
        {R"r((0020,0010)=concat((0020,000d),"-1"))r",
         R"r(StudyID (0020,0010): this has 19 bytes or more, and SH holds 16)r"},
        {R"r((0008,103e)=concat((0008,1030),"\\",(0018,0015)))r",
         R"r(SeriesDescription (0008,103e) takes one value, and a backslash parts values)r"},
        {R"r((0040,0275)="")r", R"r(RequestAttributesSequence (0040,0275): SQ holds items, which no text can make)r"},
        {R"r((0008,103e)=(0008,103E))r", R"r(this writes the element's own value: nothing changes)r"},
        {R"r((0010,4000)="a"
(0010,4000)="b")r",
         R"r(this has no effect: line 2 writes the same, and nothing reads it before)r"},
        {R"r((0018,1030)=NULL()
(0008,103e)=concat("x ",(0018,1030)))r",
         R"r(an earlier rule has deleted this: it is always NULL)r"},
        {R"r(USER(a)=NULL()
(0008,103e)=or(USER(a),(0008,103e)))r",
         R"r(an earlier rule has cleared this: it is always NULL)r"},
        {R"r((0040,0275)=NULL()
SEQ(0040,0275,0,0040,0007)="Knee")r",
         R"r(an earlier rule has deleted the sequence: items are never made, so nothing is written)r"},
    };
    for (const Case& c : kCases) {
        const RuleFile file = readRuleText(c.rules, "a.map");
        const std::vector<Finding> found = findingsIn(file);
        ASSERT_FALSE(found.empty()) << c.rules;
        EXPECT_EQ(found.front().message, c.message) << c.rules;
    }
}

TEST(ToolMeaning, aChangeOfCaseIsToldOnDemand)
{
    const RuleFile file = readRuleText("(0010,0010)=toUpper((0010,0010))\n", "a.map");
    EXPECT_TRUE(findingsIn(file).empty());
    CheckSwitches switches;
    ASSERT_TRUE(switches.set("case-change"));
    EXPECT_EQ(namesOf(lintAlone({&file, 1}, switches)), std::vector<std::string>{"case-change"});
}
