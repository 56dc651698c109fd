// SPDX-License-Identifier: BSD-3-Clause
// A server's static object that parses and applies in its constructor and again in its destructor. The program is
// linked twice, with this unit before the library and behind it: neither order may matter.
#include "kxmap.h"

#include "KXItem.h"

#include <dcmtk/dcmdata/dcdeftag.h>

#include <cstdio>
#include <cstdlib>
#include <string_view>

namespace {

void expect(bool holds, const char* what)
{
    if (holds) return;
    std::fprintf(stderr, "early: does not hold: %s\n", what);
    std::_Exit(EXIT_FAILURE);
}

const char* textOf(DcmItem& item, const DcmTagKey& key)
{
    const char* text = nullptr;
    return item.findAndGetString(key, text).good() && text != nullptr ? text : "-";
}

void work()
{
    errorlogs.clear();
    expect(Expression::readCfgLine("foo(1)") == nullptr, "a bad line is refused");
    expect(errorlogs == "Error: Unknown function:foo\n\n", "and reported");
    expect(logger.getName() == "orvo.qdcm.kxmap", "the logger is there");

    DcmDataset dataset;
    MappingSession session;
    session.dataset = &dataset;
    Mapping rules("(0010,0010)=toUpper(\"Doe\")\n(0075,1001)=codestring(\"1\")\n$(a)=rnd(10)\n", "early");
    rules.apply(session);
    expect(std::string_view(textOf(dataset, DCM_PatientName)) == "DOE", "a rule writes");
    expect(std::string_view(textOf(dataset, {KXItem::kGroup, KXItem::kCreatorElement})) == KXItem::kCreator,
           "the server's private block is reserved");
    expect(session.getVariable("a") != nullptr, "a number is drawn");
}

struct Early {
    Early()
    {
        OFLog::configure(OFLogger::OFF_LOG_LEVEL);
        work();
        ++count;
    }
    Early(const Early&) = delete;
    Early& operator=(const Early&) = delete;
    ~Early() { work(); }

    static int count;
} early;
int Early::count = 0;

} // namespace

/// @return how often it was tried before main().
int earlyTries()
{
    return Early::count;
}
