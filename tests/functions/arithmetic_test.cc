// SPDX-License-Identifier: BSD-3-Clause
// Arithmetic: 32-bit numbers, and who complains where, in which words. Some words name another function; they stay.
#include "support/fixture.h"

#include <gmock/gmock.h>

namespace {
using namespace kxtest;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr RuleCase kResults[] = {
    {"add(2,3,4)", "9"},
    {"mul(2,3,4)", "24"},
    {"sub(2,5)", "-3"},
    {R"(add("  12",0))", "12"}, // numbers are what "%d" takes
    {"add(12abc,2.9)", "14"},
    {"add(1:,0)", "1"},
    {"add(+7,-0)", "7"},
    {"add(007,1)", "8"},
    {"add(0x10,0)", "0"},
    {"add((0020,0013),1)", "8"},
    {"add(99999999999,0)", "1215752191"}, // low 32 bits
    {"div(7,2)", "3"},                    // towards zero
    {"div(-7,2)", "-3"},
    {"div(-7,-1)", "7"},
    {"mod(-7,2)", "-1"}, // the dividend's sign
    {"mod(7,-2)", "1"},
    {"div(-2147483648,1)", "-2147483648"},
    {"add(-2147483648,-1)", "2147483647"},
    {"sub(-2147483648,1)", "2147483647"},
    {"mul(65536,65536)", "0"},
    {"mul(-2147483648,-1)", "-2147483648"},
    {"between(5,5,10)", "true"},
    {"between(10,5,10)", nullptr},
    {"between(4,5,10)", nullptr},
    {"between(7,10,5)", nullptr},
    {"between(-2147483648,-2147483648,2147483647)", "true"},
    {"between(NULL(),a,b)", nullptr}, // an absent value is no problem
};

TEST(Arithmetic, computes)
{
    const LogCapture log(kError);
    StderrCapture captured;
    expectRules(kResults);
    EXPECT_THAT(log.messages(), IsEmpty());
    EXPECT_EQ(captured.text(), "");
}

enum class Channel { standardError, log };
constexpr Channel kStderr = Channel::standardError;
constexpr Channel kLog = Channel::log;

struct ComplaintCase {
    const char* expression; // all give NULL
    Channel channel;
    const char* text; // after "Coercion: ", without the line feed that standard error adds
};
constexpr ComplaintCase kComplaints[] = {
    {"add(NULL(),1)", kStderr, "NULL() parameter at function add"},
    {"add(1,abc)", kStderr, "Invalid parameter at function add: abc"},
    {R"(add(1,""))", kStderr, "Invalid parameter at function add: "},
    {"add(%s%n,1)", kStderr, "Invalid parameter at function add: %s%n"},
    {"add(.5,1)", kStderr, "Invalid parameter at function add: .5"},
    {"sub(NULL(),1)", kStderr, "NULL() parameter at function sub"},
    {"sub(1,NULL())", kStderr, "NULL() parameter at function sub"},
    {"sub(x,1)", kStderr, "Invalid parameter at function sub: x"},
    {"sub(1,x)", kStderr, "Invalid parameter at function sub: x"},
    {"mul(1,NULL())", kLog, "NULL() parameter at function mul"},
    {"mul(x,1)", kLog, "Invalid parameter at function mul: x"},
    {"div(NULL(),1)", kLog, "NULL() parameter at function sub"},
    {"div(1,NULL())", kLog, "NULL() parameter at function div"},
    {"div(x,1)", kLog, "Invalid parameter at function div: x"},
    {"div(1,x)", kLog, "Invalid parameter at function div: x"},
    {"div(1,0)", kLog, "divide by zero at function div"},
    {"div(0,0abc)", kLog, "divide by zero at function div"},
    {"div(-2147483648,-1)", kLog, "Invalid parameter at function div: -1"},
    {"mod(NULL(),1)", kLog, "NULL() parameter at function sub"},
    {"mod(1,NULL())", kLog, "NULL() parameter at function mod"},
    {"mod(x,1)", kLog, "Invalid parameter at function mod: x"},
    {"mod(1,x)", kLog, "Invalid parameter at function mod: x"},
    {"mod(1,-0)", kLog, "Modulo is 0 at function mod"},
    {"mod(-2147483648,-1)", kLog, "Invalid parameter at function mod: -1"},
    {"between(x,1,2)", kStderr, "Invalid parameter at function sub: x"},
    {"between(1,NULL(),2)", kStderr, "NULL() parameter at function sub (lower limit)"},
    {"between(1,1,NULL())", kStderr, "NULL() parameter at function sub (upper limit)"},
    {"between(1,x,2)", kStderr, "Invalid parameter at function between: x"},
    {"between(1,1,x)", kStderr, "Invalid parameter at function between: x"},
};

TEST(Arithmetic, complainsInItsWords)
{
    for (const ComplaintCase& c : kComplaints) {
        const LogCapture log(kError);
        StderrCapture captured;
        EXPECT_TRUE(evaluatesTo(c.expression, nullptr));
        const std::string text = "Coercion: " + std::string(c.text);
        EXPECT_EQ(captured.text(), c.channel == kStderr ? text + "\n" : "") << c.expression;
        const std::vector<std::string> logged(c.channel == kLog ? 1 : 0, text);
        EXPECT_EQ(log.messages(kError), logged) << c.expression;
    }
}

} // namespace
