// SPDX-License-Identifier: BSD-3-Clause
// Whole rules on whole datasets, from the files *.case beside this one; README.case explains their notation.
#include "support/fixture.h"

#include <dcmtk/dcmdata/dcpath.h>

#include <algorithm>
#include <fstream>

namespace {
namespace fs = std::filesystem;

/// One dataset with the custom fields and variables beside it.
struct State {
    DcmDataset dataset;
    MappingSession session;
    State() { session.dataset = &dataset; }
};

/// Takes the next `target=text` off a line. @return false at its end; throws when it is malformed.
bool nextElement(std::string& line, std::string& target, std::string& text)
{
    line.erase(0, line.find_first_not_of(' '));
    if (line.empty()) return false;
    const std::size_t equals = line.find('=');
    if (equals == std::string::npos) throw std::runtime_error("no = in " + line);
    target = line.substr(0, equals);
    line.erase(0, equals + 1);
    const bool isQuoted = line.starts_with('"');
    const std::size_t end = std::min(line.find(isQuoted ? '"' : ' ', isQuoted ? 1 : 0), line.size());
    if (isQuoted && end == line.size()) throw std::runtime_error("no closing quote in " + line);
    text = isQuoted ? line.substr(1, end - 1) : line.substr(0, end);
    line.erase(0, end + (isQuoted ? 1 : 0));
    return true;
}

void put(State& state, const std::string& target, const std::string& text)
{
    if (target.starts_with("USER(")) {
        state.session.customFields.setFieldValue(target.substr(5, target.size() - 6).c_str(), text.c_str());
        return;
    }
    if (target.starts_with("$(")) {
        state.session.setVariable(target.substr(2, target.size() - 3).c_str(), text.c_str());
        return;
    }
    DcmPathProcessor processor;
    OFList<DcmPath*> made;
    if (processor.findOrCreatePath(&state.dataset, target.c_str(), OFTrue).bad())
        throw std::runtime_error("bad path " + target);
    processor.getResults(made);
    auto* element = dynamic_cast<DcmElement*>(made.front()->back()->m_obj);
    const bool isEmptySequence = element != nullptr && element->ident() == EVR_SQ && text.empty();
    if (element == nullptr || (!isEmptySequence && element->putString(text.c_str()).bad()))
        throw std::runtime_error("cannot put " + target + '=' + text);
}

void fill(State& state, std::string line)
{
    if (line == "-") return;
    std::string target, text;
    while (nextElement(line, target, text)) put(state, target, text);
}

void list(DcmItem& item, const std::string& prefix, std::string& lines)
{
    for (DcmObject* next = item.nextInContainer(nullptr); next != nullptr; next = item.nextInContainer(next)) {
        const std::string path = prefix + next->getTag().toString().c_str();
        auto* sequence = dynamic_cast<DcmSequenceOfItems*>(next);
        OFString text;
        if (sequence == nullptr) static_cast<DcmElement*>(next)->getOFStringArray(text);
        if (sequence == nullptr || sequence->card() == 0) lines += path + '=' + text.c_str() + '\n';
        for (unsigned long i = 0; sequence != nullptr && i < sequence->card(); ++i)
            list(*sequence->getItem(i), path + '[' + std::to_string(i) + "].", lines);
    }
}

/// Everything that rules can have written, a line each.
std::string listing(State& state)
{
    std::string lines;
    list(state.dataset, "", lines);
    for (const auto& [name, text] : state.session.customFields.fields()) lines += "USER(" + name + ")=" + text + '\n';
    for (const auto& [name, text] : state.session.variables)
        if (!name.starts_with("@")) lines += "$(" + name + ")=" + text + '\n';
    return lines;
}

void run(const std::vector<std::string>& block, const std::string& place)
{
    SCOPED_TRACE(place);
    ASSERT_GE(block.size(), 3U) << "a case has a rule, the elements before, the elements after";
    State before, after;
    fill(before, block[block.size() - 2]);
    fill(after, block.back());
    std::string rules;
    std::size_t good = 0;
    for (std::size_t i = 0; i + 2 < block.size(); ++i) {
        const bool isDropped = block[i].starts_with("! ");
        rules += block[i].substr(isDropped ? 2 : 0) + '\n';
        good += isDropped ? 0 : 1;
    }
    errorlogs.clear();
    const kxtest::StderrCapture complaints; // of operands that are no numbers
    Mapping mapping(rules.c_str(), "case");
    EXPECT_EQ(mapping.assignments.size(), good) << errorlogs;
    mapping.apply(before.session);
    EXPECT_EQ(listing(before), listing(after)) << rules;
}

TEST(Cases, all)
{
    std::size_t cases = 0;
    for (const fs::directory_entry& entry : fs::directory_iterator(KXDCM_SOURCE_DIR "/tests/cases")) {
        if (entry.path().extension() != ".case") continue;
        std::ifstream file(entry.path());
        std::vector<std::string> block;
        std::string line;
        for (int number = 1; file; ++number) {
            const bool isEnd = !std::getline(file, line) || line.empty();
            if (!isEnd && !line.starts_with('#')) block.push_back(line);
            if (!isEnd || block.empty()) continue;
            run(block, entry.path().filename().string() + ", case before line " + std::to_string(number));
            block.clear();
            ++cases;
        }
    }
    EXPECT_GE(cases, 25U);
}
} // namespace
