// SPDX-License-Identifier: BSD-3-Clause
// From text to tree: tokens, literals, calls and argument lists. Each call scans the text of its own brackets once, so
// parsing takes the text's length times the depth of its nesting at most.
#include "kxmap.h"

#include "kxmap/core/bytes.h"
#include "kxmap/core/guards.h"
#include "kxmap/core/inspect.h"
#include "kxmap/core/limits.h"
#include "kxmap/core/messages.h"
#include "kxmap/core/registry.h"

#include <cstring>
#include <tuple>
#include <utility>

namespace {

using Fault = kxmap::ParseFault::Kind;

/// Says whether a byte is no comma, quote, bracket or terminator. It is a token of its own then; nearly all bytes are.
bool isPlain(char c)
{
    return static_cast<unsigned char>(c) > ',' || (c != ',' && c != '"' && c != '(' && c != ')' && c != '\0');
}

/// @param p after an opening quote.
/// @return the position after the closing one; the terminator where it is missing.
char* skipQuoted(char* p)
{
    for (; *p != '\0' && *p != '"'; ++p) {
        if (*p == '\\' && *++p == '\0') return p;
    }
    return *p == '\0' ? p : p + 1;
}

/// Steps over the token at `p`: a byte, a quoted text, or a balanced bracket group.
/// @return the position after it; the terminator where a quote or a bracket is left open; null at a stray ")".
char* stepToken(char* p)
{
    if (*p == '"') return skipQuoted(p + 1);
    if (*p == ')') return nullptr;
    if (*p != '(') return *p == '\0' ? p : p + 1;
    std::size_t depth = 0;
    for (;;) {
        if (*p == '(') {
            ++depth;
        } else if (*p == ')') {
            if (--depth == 0) return p + 1;
        } else if (*p == '"') {
            p = skipQuoted(p + 1);
            continue;
        } else if (*p == '\0') {
            return p;
        }
        do ++p;
        while (isPlain(*p));
    }
}

/// Decodes the quoted literal that begins after its opening quote, in place: it only gets shorter.
/// @return the position after the closing quote; null when that is missing. What follows it is ignored.
const char* decodeQuoted(char* s)
{
    char* out = s;
    for (const char* in = s; *in != '\0'; ++in) {
        if (*in == '"') {
            *out = '\0';
            return in + 1;
        }
        if (*in != '\\') {
            *out++ = *in;
            continue;
        }
        ++in;
        if (*in == '\0') return nullptr;
        *out++ = *in == 'n' ? '\n' : *in;
    }
    return nullptr;
}

class Parser {
public:
    /// @param text what is parsed, writable; its bytes stay in place, so that a trace can tell offsets in it.
    /// @param trace null for none.
    explicit Parser(const char* text, kxmap::ParseTrace* trace = nullptr) : text_(text), trace_(trace) {}

    /// Fills a fresh node from the bytes up to `end`, where the terminator stands.
    /// @param depth the calls around it.
    /// @return null, or a message that the caller releases.
    char* parse(Expression& node, char* s, char* end, int depth);

    /// Fills the arguments of `call`, whose function is set. @return as parse().
    char* parseList(Expression& call, char* s, char* end, int depth);

private:
    char* parseCall(Expression& node, char* s, char* end, int depth, const kxmap::NodeSpan& seen);
    char* unknownFunction(const char* name, const char* nameEnd);
    char* addArgument(Expression& call, char* argument, char* end, int depth);
    char* checkArguments(const Expression& call, const char* list);

    kxmap::Span span(const char* begin, const char* end) const
    {
        return {static_cast<std::size_t>(begin - text_), static_cast<std::size_t>(end - text_)};
    }

    /// @return a copy of `message`, once the trace has the fault.
    char* fail(Fault kind, const char* message, const char* begin, const char* end)
    {
        if (trace_ != nullptr) {
            trace_->fault.kind = kind;
            trace_->fault.span = span(begin, end);
        }
        return newdup(message);
    }

    void note(const kxmap::NodeSpan& seen, kxmap::NodeSpan::Kind kind, const char* contentEnd)
    {
        if (trace_ == nullptr) return;
        kxmap::NodeSpan& node = trace_->nodes.emplace_back(seen);
        node.kind = kind;
        node.contentEnd = static_cast<std::size_t>(contentEnd - text_);
    }

    const char* text_;
    kxmap::ParseTrace* trace_;
};

/// Parses a right-hand side under the root wrapper.
/// @param failure receives the message when null is returned.
std::unique_ptr<Expression> parseRoot(const char* line, kxmap::ParseTrace* trace, kxmap::CharArray& failure)
{
    auto root = std::make_unique<Expression>();
    root->func = &f_root;
    std::string copy(line);
    failure.reset(Parser(copy.data(), trace).parseList(*root, copy.data(), copy.data() + copy.size(), 0));
    if (failure) return nullptr;
    return root;
}

char* Parser::parse(Expression& node, char* s, char* end, int depth)
{
    kxmap::NodeSpan seen;
    seen.node = &node;
    kxmap::trimBlanks(s, end);
    seen.text = span(s, end);
    if (s == end) {
        note(seen, kxmap::NodeSpan::Kind::Empty, end);
        return nullptr;
    }
    if (end[-1] == ')') return parseCall(node, s, end, depth, seen); // even where a quote comes first
    if (*s != '"') {
        note(seen, kxmap::NodeSpan::Kind::Bare, end);
        node.text = newdup(s);
        return nullptr;
    }
    const char* contentEnd = decodeQuoted(s + 1);
    if (contentEnd == nullptr) return fail(Fault::OpenQuote, kxmap::kMismatchedQuotes, s, end);
    note(seen, kxmap::NodeSpan::Kind::Quoted, contentEnd);
    node.text = newdup(s + 1);
    return nullptr;
}

char* Parser::parseCall(Expression& node, char* s, char* end, int depth, const kxmap::NodeSpan& seen)
{
    if (depth >= kxmap::kMaxNesting) return fail(Fault::NestedTooDeeply, kxmap::kNestedTooDeeply, s, end);
    char* const listEnd = end - 1;
    *listEnd = '\0';
    char* bracket = s;
    while (*bracket != '\0' && *bracket != '(') {
        char* next = isPlain(*bracket) ? bracket + 1 : stepToken(bracket);
        if (next == nullptr) return fail(Fault::StrayBracket, kxmap::kMismatchedBracket, bracket, bracket + 1);
        bracket = next;
    }
    if (*bracket == '\0') return fail(Fault::NoOpenBracket, kxmap::kMismatchedCall, s, end);
    *bracket = '\0';
    node.func = kxmap::findFunction(s);
    if (node.func == nullptr) return unknownFunction(s, bracket);
    note(seen, kxmap::NodeSpan::Kind::Call, bracket);
    return parseList(node, bracket + 1, listEnd, depth + 1);
}

char* Parser::unknownFunction(const char* name, const char* nameEnd)
{
    if (trace_ != nullptr) trace_->fault.name = name;
    const std::string message = std::string(kxmap::kUnknownFunction) + name + '\n';
    return fail(Fault::UnknownFunction, message.c_str(), name, nameEnd);
}

char* Parser::parseList(Expression& call, char* s, char* end, int depth)
{
    const char* const list = s;
    kxmap::trimBlanks(s, end);
    if (s == end) return checkArguments(call, list);

    char* argument = s;
    for (char* p = s; p != end;) {
        if (*p == ',') {
            *p = '\0';
            if (char* message = addArgument(call, argument, p, depth)) return message;
            argument = ++p;
            // Deliberate: the step below swallows a comma that follows directly.
            if (*p == ',' && trace_ != nullptr) trace_->swallowed.push_back(static_cast<std::size_t>(p - text_));
        }
        char* next = p != end && isPlain(*p) ? p + 1 : stepToken(p);
        if (next == nullptr) return fail(Fault::StrayBracket, kxmap::kMismatchedBracket, p, p + 1);
        p = next;
    }
    if (char* message = addArgument(call, argument, end, depth)) return message;
    return checkArguments(call, list);
}

char* Parser::addArgument(Expression& call, char* argument, char* end, int depth)
{
    auto param = std::make_unique<Expression>();
    if (char* message = parse(*param, argument, end, depth)) return message;
    call.params.push_back(param.get());
    std::ignore = param.release(); // `params` owns it now
    return nullptr;
}

/// @param list what stands between the call's brackets.
/// @return null when the call's function takes as many arguments as it has, else the message.
char* Parser::checkArguments(const Expression& call, const char* list)
{
    const std::size_t count = call.params.size();
    // More arguments than an int counts do not fit a function either.
    if (std::in_range<int>(count) && call.func->numParamsOK(static_cast<int>(count))) return nullptr;
    const std::string start = call.func->name + (kxmap::kDoesNotTake + std::to_string(count)); // in no locale
    OFLOG_ERROR(logger, start << kxmap::kArguments);
    const std::string message = start + ' ' + kxmap::kArguments + '\n';
    const char* nameEnd = list == text_ ? list : list - 1; // the root wrapper has no name in the text
    const char* name = list == text_ ? list : nameEnd - std::strlen(call.func->name);
    if (trace_ != nullptr) {
        trace_->fault.function = call.func;
        trace_->fault.count = count;
    }
    return fail(Fault::ArgumentCount, message.c_str(), name, nameEnd);
}

} // namespace

char* Expression::parserStep(char* p)
{
    char* next = stepToken(p);
    if (next == nullptr) throw kxmap::kMismatchedBracket;
    return next;
}

Expression* Expression::readCfgLine(const char* line)
{
    kxmap::CharArray failure;
    std::unique_ptr<Expression> root = parseRoot(line, nullptr, failure);
    if (!root) {
        error(std::string(kxmap::kErrorPrefix) + failure.get());
        return nullptr;
    }
    OFLOG_DEBUG(logger, *root);
    return root.release();
}

char* Expression::parse(char* s)
{
    return Parser(s).parse(*this, s, s + std::strlen(s), 0);
}

char* Expression::parseParamList(char* s)
{
    return Parser(s).parseList(*this, s, s + std::strlen(s), 0);
}

std::unique_ptr<Expression> kxmap::ParseTrace::parse(const char* line)
{
    *this = {};
    CharArray failure;
    std::unique_ptr<Expression> root = parseRoot(line, this, failure);
    if (failure) message = failure.get();
    return root;
}
