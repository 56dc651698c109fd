// SPDX-License-Identifier: BSD-3-Clause
// The coercion table against the engine: what a rule changes has a row, and what has a row can happen.
#ifdef KXDCM_TOOL

#include "tool/conformancefixture.h"
#include "tool/dicom/dicomfile.h"
#include "tool/record/recorder.h"
#include "tool/rules/builtins.h"
#include "tool/run.h"

#include <dcmtk/dcmdata/dcdeftag.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <cstdlib>
#include <random>
#include <regex>
#include <set>

using namespace kxtest;
using namespace kxtool;

namespace {

/// "(0010,1002) item 1 > (0010,0020)" for "(0010,1002)[0].(0010,0020)".
std::string tagOf(const Place& place)
{
    std::string name = place.name;
    std::ranges::transform(name, name.begin(),
                           [](char c) { return c >= 'a' && c <= 'f' ? static_cast<char>(c - 32) : c; });
    std::smatch item;
    while (std::regex_search(name, item, std::regex(R"(\[(\d+)\]\.)")))
        name = item.prefix().str() + " item " + std::to_string(std::stoi(item[1]) + 1) + " > " + item.suffix().str();
    return name;
}

/// @return the word for what a rule did to an element; null where it did nothing.
const char* kindOf(const Step& step)
{
    if (step.place.kind != Place::Kind::Element) return nullptr;
    switch (step.effect) {
    case Effect::Created:
        return "added";
    case Effect::Set:
        return "modified";
    case Effect::Deleted:
        return "removed";
    default:
        return nullptr;
    }
}

bool hasRow(const std::vector<CoercionRow>& rows, const std::string& tag, const std::string& kind,
            const std::string& source)
{
    return std::ranges::any_of(rows, [&](const CoercionRow& row) {
        return row.tag == tag && row.action.find(kind) != std::string::npos && (source.empty() || row.source == source);
    });
}

std::string textIn(const RuleFile& file)
{
    return file.path.native() + ":\n" + file.bytes;
}

class RandomRules {
public:
    explicit RandomRules(unsigned seed) : random_(seed) {}

    std::string file()
    {
        std::string rules;
        for (std::size_t count = 1 + below(6); count > 0; --count) rules += rule() + "\n";
        return rules;
    }

    std::size_t below(std::size_t limit) { return random_() % limit; }

private:
    static constexpr std::array kElements = {"(0010,0010)", "(0010,0020)", "(0008,1010)", "(0008,0060)", "(0020,0013)",
                                             "(0028,0010)", "(0010,4000)", "(0008,1140)", "(0010,1002)", "(0009,1002)",
                                             "(0009,0010)", "(0099,1001)", "(0075,1001)", "(0075,100b)", "(0075,0010)",
                                             "(7fe0,0010)", "(0028,0106)", "(0008,0021)"};
    static constexpr std::array kInItems = {"SEQ(0008,1140,0,0008,1155)", "SEQ(0010,1002,0,0010,0020)",
                                            "SEQ(0008,1140,-1,0075,1002)", "SEQ(3006,0020,1,3006,0026)"};
    static constexpr std::array kNames = {"$(v)", "$(w)", "$(@g)", "USER(f)"};
    static constexpr std::array kTexts = {"NULL()", "\"\"",  "\"A\"", "\"7\"",  "\"12x\"", "\"^\"",       "\"true\"",
                                          "\"CT\"", "\"0\"", "\"1\"", "\"-1\"", "\"2\"",   "\"20240131\""};

    template <typename List>
    std::string oneOf(const List& list)
    {
        return list[below(list.size())];
    }

    std::string rule()
    {
        target_ = below(4) == 0 ? oneOf(kInItems) : below(3) == 0 ? oneOf(kNames) : oneOf(kElements);
        switch (below(5)) {
        case 0:
            return target_ + "=if(equals(or(" + target_ + ",\"\"),\"\")," + expression(1) + "," + target_ + ")";
        case 1:
            return target_ + "=or(" + expression(2) + "," + target_ + ")";
        default:
            return target_ + "=" + expression(3);
        }
    }

    std::string expression(int depth)
    {
        if (depth == 0 || below(4) == 0) return leaf();
        const Builtin& builtin = builtins()[below(builtins().size() - 1)];
        if (builtin.way == Way::Tag) return leaf();
        std::size_t count = below(7);
        while (!builtin.function->numParamsOK(static_cast<int>(count))) count = (count + 1) % 7;
        std::string text(builtin.name());
        for (std::size_t i = 0; i < count; ++i) text += (i == 0 ? "(" : ",") + expression(depth - 1);
        return text + (count == 0 ? "()" : ")");
    }

    std::string leaf()
    {
        switch (below(8)) {
        case 0:
        case 1:
            return target_;
        case 2:
            return oneOf(kNames);
        case 3:
        case 4:
            return oneOf(kTexts);
        case 5:
            return oneOf(kInItems);
        default:
            return oneOf(kElements);
        }
    }

    std::string target_;
    std::mt19937 random_;
};

/// Datasets of many kinds, and the same with elements in VRs that they have not in the standard.
std::vector<std::unique_ptr<DcmDataset>> datasets()
{
    std::vector<std::unique_ptr<DcmDataset>> all;
    for (const char* name : {"CT_small.dcm",
                             "MR_small_implicit.dcm",
                             "MR_small_bigendian.dcm",
                             "ExplVR_BigEnd.dcm",
                             "UN_sequence.dcm",
                             "badVR.dcm",
                             "nested_priv_SQ.dcm",
                             "priv_SQ.dcm",
                             "waveform_ecg.dcm",
                             "reportsi.dcm",
                             "rtplan.dcm",
                             "rtstruct.dcm",
                             "test-SR.dcm",
                             "SC_rgb_small_odd.dcm",
                             "empty_charset_LEI.dcm",
                             "MR_small_RLE.dcm",
                             "JPEG2000.dcm",
                             "rtdose_1frame.dcm",
                             "image_dfl.dcm",
                             "liver_1frame.dcm"}) {
        DicomFile file(testFile(name));
        all.push_back(std::make_unique<DcmDataset>(file.dataset()));
        std::unique_ptr<DcmElement>(all.back()->remove(DCM_PixelData)).reset();
        all.push_back(std::make_unique<DcmDataset>(*all.back()));
        for (const DcmTagKey& key : {DCM_PatientID, DCM_StationName, DCM_Rows, DCM_Modality}) {
            auto odd = std::make_unique<DcmOtherByteOtherWord>(DcmTag(key, key == DCM_Modality ? EVR_OB : EVR_UN));
            odd->putUint8Array(reinterpret_cast<const Uint8*>("7A"), 2);
            if (all.back()->insert(odd.get(), true).good()) std::ignore = odd.release();
        }
    }
    return all;
}

int rulesToTry()
{
    const char* many = std::getenv("KXDCM_RANDOM_RULES"); // for a long run by hand
    return many == nullptr ? 3000 : std::atoi(many);
}

} // namespace

TEST(ConformanceTable, HasARowForEachChange)
{
    const auto images = datasets();
    RandomRules random(7);
    int changes = 0;
    int rules = 0;
    while (rules < rulesToTry()) {
        std::vector<RuleFile> files;
        for (const char* name : {"m/global/pre.map", "m/X.map"}) files.push_back(readRuleText(random.file(), name));
        RulesInOrder run;
        for (const RuleFile& file : files) run.push_back(&file);
        rules += static_cast<int>(files[0].ruleCount() + files[1].ruleCount());
        const std::vector<CoercionRow> rows = tableOf(files);
        for (int round = 0; round < 2; ++round) {
            DcmDataset dataset(*images[random.below(images.size())]);
            MappingSession session;
            session.dataset = &dataset;
            if (random.below(3) == 0) session.setVariable("@g", "of the server");
            if (random.below(2) == 0) session.customFields.setFieldValue("f", "A^7");
            Recording recording;
            recording.run(run, session);
            for (const Step& step : recording.steps()) {
                const char* kind = kindOf(step);
                if (kind == nullptr) continue;
                ++changes;
                const std::string source =
                    step.file->path.lexically_relative("m").native() + ":" + std::to_string(step.rule->line);
                ASSERT_TRUE(hasRow(rows, tagOf(step.place), kind, source))
                    << source << " " << kind << " " << step.before.value_or("-") << " -> " << step.after.value_or("-")
                    << "\n"
                    << textIn(files[0]) << textIn(files[1]) << shown(rows);
            }
            for (const Change& change : recording.changes()) {
                if (change.sign() == '+' && change.place.name.ends_with("(0075,0010)")) {
                    ASSERT_TRUE(hasRow(rows, tagOf(change.place), "added", "")) << textIn(files[0]) << textIn(files[1]);
                }
            }
        }
    }
    EXPECT_GT(changes, rules / 5); // else nothing was tested
}

// For plain rules, what the table tells is what happens, no less and no more.
TEST(ConformanceTable, TellsOfPlainRulesWhatCanHappenAndNothingElse)
{
    constexpr std::array kRules = {
        "T=\"x\"",
        "T=NULL()",
        "T=\"\"",
        "T=S",
        "T=T",
        "T=toUpper(S)",
        "T=concat(\"N-\",S)",
        "T=concat(\"N-\",T)",
        "T=if(T,concat(\"N-\",T),T)",
        "T=if(equals(T,\"A\"),\"x\",T)",
        "T=if(equals(S,\"A\"),\"x\",T)",
        "T=if(equals(T,S),\"x\",T)",
        "T=if(equals(T,\"\"),NULL(),T)",
        "T=if(equals(or(T,\"\"),\"\"),\"x\",T)",
        "T=if(not(equals(or(S,\"\"),\"\")),S,T)",
        "T=or(T,\"x\")",
        "T=or(S,T)",
        "T=or(T,S)",
        "T=or(T,S,\"x\")",
        "T=if(S,T,NULL())",
        "T=if(and(T,S),S,T)",
        "T=translate(T,T,\"A\",\"B\",\"b\",\"B\")",
        "T=translate(T,T,\"A\",NULL())",
        "T=translate(T,T,NULL(),\"x\")",
        "T=translate(S,NULL(),\"A\",\"x\",\"b\",\"y\")",
        "T=translate(NULL(),\"d\",S,NULL())",
        "T=if(contains(S,\"A\"),S,T)",
        "T=if(contains(T,\"A\"),\"x\",T)",
        "T=contains(S,\"A\")",
        "T=contains(\"A\",S)",
        "T=or(split(S,\"^\",2),T)",
        "T=split(T,\"^\",1)",
        "T=if(equals(strlen(T),1),concat(substr(T,0,1),\"0\"),\"\")",
        "T=if(between(T,0,9),add(T,10),T)",
        "T=add(T,1)",
        "T=if(equals(substr(T,0,2),\"A^\"),substr(T,2),T)",
        "T=substr(\"123\",0,S)",
        "$(v)=if(equals(T,\"\"),NULL(),T)\nT=if($(v),concat(\"N-\",$(v)),T)",
        "$(v)=if(equals(T,\"\"),NULL(),T)\nT=if(and($(v),not(equals(substr($(v),0,1),\"A\"))),concat(\"A\",$(v)),T)",
        "$(v)=equals(or(T,\"\"),\"\")\nT=if($(v),\"x\",T)",
        "$(v)=or(T,\"\")\nT=if(equals($(v),\"\"),\"x\",T)",
        "$(v)=S\n$(v)=\"x\"\nT=$(v)",
        "$(@v)=or(S,\"\")\nT=if(equals($(@v),\"A\"),\"x\",T)",
        "USER(f)=S\nT=or(USER(f),T)",
        "$(v)=or(split(S,\"^\",2),NULL())\nT=if($(v),$(v),T)",
        "SEQ(0010,1002,0,0010,0020)=T",
        "SEQ(0010,1002,0,0010,0020)=or(SEQ(0010,1002,0,0010,0020),T)",
        "T=or(SEQ(0010,1002,0,0010,0020),T)",
        "T=if(equals(or(SEQ(0010,1002,0,0010,0020),\"\"),\"\"),T,\"x\")",
    };
    constexpr std::array kTexts = {"-", "", "A", "b", "A^B", "7"};
    const auto put = [](DcmItem& item, const DcmTagKey& key, const std::string& text) {
        if (text != "-") item.putAndInsertString(key, text.c_str());
    };
    for (std::string rules : kRules) {
        rules = std::regex_replace(rules, std::regex("\\bT\\b"), "(0010,0020)");
        rules = std::regex_replace(rules, std::regex("\\bS\\b"), "(0008,1010)");
        const RuleFile file = readRuleText(rules, "m/X.map");
        std::set<std::string> happened;
        for (const char* t : kTexts) {
            for (const char* s : kTexts) {
                for (const char* inItem : {"none", "-", "A", "b"}) {
                    DcmDataset dataset;
                    put(dataset, DCM_PatientID, t);
                    put(dataset, DCM_StationName, s);
                    DcmItem* item = nullptr;
                    if (inItem != std::string("none") &&
                        dataset.findOrCreateSequenceItem(DCM_OtherPatientIDsSequence, item, 0).good())
                        put(*item, DCM_PatientID, inItem);
                    MappingSession session;
                    session.dataset = &dataset;
                    Recording recording;
                    recording.run({&file}, session);
                    for (const Step& step : recording.steps()) {
                        if (const char* kind = kindOf(step)) happened.insert(tagOf(step.place) + " " + kind);
                    }
                }
            }
        }
        std::set<std::string> told;
        const std::vector<CoercionRow> rows = tableOf(rules);
        for (const CoercionRow& row : rows) {
            if (row.condition.starts_with("its VR is")) continue; // none of these datasets has another
            for (const char* kind : {"added", "modified", "removed"}) {
                if (row.action.find(kind) != std::string::npos) told.insert(row.tag + " " + kind);
            }
        }
        EXPECT_EQ(told, happened) << rules << "\n" << shown(rows);
    }
}

#endif
