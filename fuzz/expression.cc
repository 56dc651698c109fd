// SPDX-License-Identifier: BSD-3-Clause
// Right-hand sides: the text is parsed, printed, parsed again and evaluated.
#include "support/harness.h"

#include <sstream>

using kxfuzz::require;

namespace {

bool isEmpty(const Expression& node)
{
    return node.func == nullptr && node.text == nullptr;
}

bool sameTree(const Expression& a, const Expression& b)
{
    if (a.func != b.func || (a.text == nullptr) != (b.text == nullptr)) return false;
    if (a.text != nullptr && std::string_view(a.text) != b.text) return false;
    if (a.params.size() != b.params.size()) return false;
    auto other = b.params.begin();
    for (const Expression* param : a.params) {
        if (!sameTree(*param, **other++)) return false;
    }
    return true;
}

/// Writes arguments as a text that parses to the same tree, whatever they hold: literals with their escapes, and a
/// blank for an empty argument, since the parser would take a comma behind a comma into the next one.
void spell(const Expression& call, std::string& out)
{
    bool first = true;
    for (const Expression* param : call.params) {
        if (!first) out += ',';
        first = false;
        if (param->func != nullptr) {
            out += param->func->name;
            out += '(';
            spell(*param, out);
            out += ')';
        } else if (param->text != nullptr) {
            out += '"';
            for (const char* p = param->text; *p != '\0'; ++p) {
                if (*p == '"' || *p == '\\') out += '\\';
                out += *p;
            }
            out += '"';
        } else {
            out += ' ';
        }
    }
}

/// Whether what operator<< writes parses to the same tree: it writes quotation marks and backslashes of literals as
/// they are, and nothing at all for an empty argument, which must therefore not stand between two others.
bool printsParsable(const Expression& call)
{
    std::size_t position = 0;
    for (const Expression* param : call.params) {
        const bool isBetween = position > 0 && position + 1 < call.params.size();
        ++position;
        if (isEmpty(*param) && isBetween) return false;
        if (param->text != nullptr && std::string_view(param->text).find_first_of("\"\\") != std::string_view::npos)
            return false;
        if (!printsParsable(*param)) return false;
    }
    return true;
}

void requireParsesTo(const std::string& text, const Expression& expected)
{
    const std::unique_ptr<Expression> tree(Expression::readCfgLine(text.c_str()));
    require(tree != nullptr && sameTree(*tree, expected), "a printed tree parses to the same tree");
}

void checkPrinting(const Expression& tree)
{
    std::string spelled;
    spell(tree, spelled);
    requireParsesTo(spelled, tree);

    std::ostringstream out;
    out << tree;
    const std::string printed = out.str();
    const std::string head = std::string(tree.func->name) + '(';
    require(printed.starts_with(head) && printed.ends_with(')'), "a tree prints under the root wrapper");
    const std::string inner = printed.substr(head.size(), printed.size() - head.size() - 1);
    if (inner != spelled && printsParsable(tree)) requireParsesTo(inner, tree);
}

/// @return what the tree comes to; nothing for NULL.
std::optional<std::string> evaluate(Expression& tree, MappingSession& session)
{
    gseed = 0;
    const kxfuzz::ValueOwner owner(tree.getValue(session));
    if (owner.value == nullptr) return std::nullopt;
    require(owner.value->refCount == 1, "a value that is handed out has one holder");
    const char* text = owner.value->getString();
    require(text != nullptr, "a value of the dataset has a text");
    return text;
}

void checkEvaluation(Expression& tree)
{
    static const std::unique_ptr<DcmDataset> dataset = kxfuzz::sampleCopy();
    static const std::optional<std::string> before = kxfuzz::written(*dataset, EXS_LittleEndianExplicit);
    static MappingSession session = kxfuzz::sampleSession(dataset.get());
    static const MappingSession sessionBefore = session;

    const std::optional<std::string> first = evaluate(tree, session);
    require(evaluate(tree, session) == first, "evaluation can be repeated");
    require(session.variables == sessionBefore.variables && session.atVariables == sessionBefore.atVariables &&
                session.customFields.fields() == sessionBefore.customFields.fields(),
            "evaluation changes no variable and no field");
    require(kxfuzz::written(*dataset, EXS_LittleEndianExplicit) == before, "evaluation changes no byte of the dataset");
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    kxfuzz::begin(size);
    const std::string text(reinterpret_cast<const char*>(data), size);
    const std::unique_ptr<Expression> tree(Expression::readCfgLine(text.c_str()));
    if (!tree) {
        require(errorlogs.starts_with("Error: ") && errorlogs.ends_with('\n'), "a refused text is reported");
        return 0;
    }
    require(errorlogs.empty(), "an accepted text is not reported");
    checkPrinting(*tree);
    checkEvaluation(*tree);
    return 0;
}
