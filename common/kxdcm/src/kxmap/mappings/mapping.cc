// SPDX-License-Identifier: BSD-3-Clause
// One mapping file: read as a whole and applied, or applied line by line.
#include "kxmap.h"

#include "kxmap/mappings/lines.h"
#include "kxmap/mappings/messages.h"

#include <algorithm>
#include <cstring>
#include <tuple>

static_assert(sizeof(Mapping::name) == kxmap::kMappingNameBytes);

Mapping::Mapping(const char* mappingName) : name{}
{
    const std::size_t length = std::min(std::strlen(mappingName), sizeof name - 1);
    std::memcpy(name, mappingName, length);
    OFLOG_DEBUG(logger, "Creating mapping '" << name << "':");
}

// The two constructors below delegate to the one above: so an exception in their bodies runs the destructor.
Mapping::Mapping(FILE* file, const char* mappingName) : Mapping(mappingName)
{
    kxmap::LineReader lines(file);
    while (const char* line = lines.next()) addLine(line);
}

Mapping::Mapping(const char* text, const char* mappingName) : Mapping(mappingName)
{
    for (std::string line; *text != '\0';) {
        const char* end = std::strchr(text, '\n');
        if (end == nullptr) line.assign(text);
        else line.assign(text, end);
        addLine(line.c_str());
        text += line.size() + (end == nullptr ? 0 : 1);
    }
}

Mapping::~Mapping()
{
    for (Assignment* assignment : assignments) delete assignment;
}

void Mapping::addLine(const char* line)
{
    auto assignment = std::make_unique<Assignment>();
    OFLOG_DEBUG(logger, "Line: " << line);
    if (!assignment->readCfgLine(line)) return;
    assignments.push_back(assignment.get());
    std::ignore = assignment.release(); // the list owns it now
}

int Mapping::apply(MappingSession& session)
{
    session.variables.clear(); // plain variables live within one mapping; those with "@" go on
    for (Assignment* assignment : assignments) assignment->apply(session); // none stops those after it
    return 0;
}

bool Mapping::applyStatic(const char* fileName, MappingSession& session, std::list<LVObject*>* written)
{
    const kxmap::FileHandle file = kxmap::openFile(fileName);
    if (!file) {
        OFLOG_ERROR(logger, kxmap::kCannotOpen << fileName);
        return false;
    }
    session.variables.clear();
    kxmap::LineReader lines(file.get());
    while (const char* line = lines.next()) {
        Assignment assignment;
        assignment.readCfgLine(line); // a bad line leaves it incomplete, and apply() says so
        if (assignment.apply(session) != 0 || written == nullptr) continue;
        written->push_back(assignment.lvalue);
        assignment.lvalue = nullptr; // the caller owns it now
    }
    return true;
}
