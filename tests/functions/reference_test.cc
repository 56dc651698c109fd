// SPDX-License-Identifier: BSD-3-Clause
// docs/functions.json against the library: every built-in has its entry, and every example comes out as it says.
#include "support/fixture.h"

#include <dcmtk/dcmdata/dcpath.h>

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <nlohmann/json.hpp>

namespace {

using nlohmann::json;
using namespace kxtest;

const json& reference()
{
    static const json parsed = json::parse(std::ifstream(KXDCM_SOURCE_DIR "/docs/functions.json"));
    return parsed;
}

/// Puts one "PLACE=TEXT", as tests/cases have them, but without quotes.
void put(MappingSession& session, const std::string& element)
{
    const std::size_t equals = element.find('=');
    ASSERT_NE(equals, std::string::npos) << element;
    const std::string text = element.substr(equals + 1);
    if (element.starts_with("USER("))
        session.customFields.setFieldValue(element.substr(5, equals - 6).c_str(), text.c_str());
    else if (element.starts_with("$(")) session.setVariable(element.substr(2, equals - 3).c_str(), text.c_str());
    else EXPECT_TRUE(DcmPathProcessor().applyPathWithValue(session.dataset, element.c_str()).good()) << element;
}

/// Applies all rules; the last one is the one that may be refused. @return its target, read as an expression.
std::string apply(const json& rules, MappingSession& session)
{
    std::string target;
    for (const std::string rule : rules) {
        Assignment assignment;
        assignment.readCfgLine(rule.c_str());
        assignment.apply(session);
        target = rule.substr(0, rule.find('='));
    }
    return target;
}

void run(const json& example)
{
    SCOPED_TRACE(example.dump());
    DcmDataset dataset;
    MappingSession session;
    session.dataset = &dataset;
    for (const std::string element : example.value("elements", json::array())) put(session, element);

    std::string expression = example.value("expression", "");
    errorlogs.clear();
    StderrCapture errors;
    const LogCapture log;
    if (example.contains("rules")) expression = apply(example["rules"], session);
    if (example.contains("refused")) {
        if (!example.contains("rules")) evaluate(expression.c_str(), session);
        EXPECT_EQ(errorlogs.substr(0, errorlogs.find('\n')), example["refused"]);
        return;
    }
    const Outcome outcome = evaluate(expression.c_str(), session);
    EXPECT_TRUE(outcome.parsed) << outcome.parseErrors;
    ASSERT_TRUE(example.contains("result"));
    EXPECT_EQ(outcome.isNull ? json() : json(outcome.text), example["result"]);
    std::string said = errors.text();
    for (const std::string& message : log.messages(kError)) said += message + '\n';
    std::string expected;
    for (const std::string message : example.value("messages", json::array())) expected += message + '\n';
    EXPECT_EQ(said, expected);
}

TEST(Reference, hasEveryBuiltIn)
{
    std::vector<std::string> built{std::string(f_root.name)}, described;
    for (const FunctionDef* const* def = funcList; *def != nullptr; ++def) built.emplace_back((*def)->name);
    for (const json& entry : reference()["entries"]) {
        if (entry["family"] == "targets") continue;
        const std::string name = entry["name"];
        described.push_back(name);
        for (const FunctionDef* const* def = funcList; *def != nullptr; ++def) {
            if (name != (*def)->name) continue;
            EXPECT_EQ(entry.value("alias", ""), (*def)->alias ? (*def)->alias : "") << name;
        }
    }
    std::ranges::sort(built);
    std::ranges::sort(described);
    EXPECT_EQ(described, built);
}

TEST(Reference, examples)
{
    for (const json& entry : reference()["entries"]) {
        EXPECT_GE(entry["examples"].size(), 2U) << entry["name"];
        for (const json& example : entry["examples"]) run(example);
    }
}

TEST(Reference, pageIsUpToDate)
{
    EXPECT_EQ(std::system("python3 '" KXDCM_SOURCE_DIR "/scripts/reference' --check"), 0);
}

} // namespace
