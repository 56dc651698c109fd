// SPDX-License-Identifier: BSD-3-Clause
// Datasets: the first byte picks a transfer syntax, the others are read in it; a fixed mapping that uses the whole
// language is applied, and what came of it is written and read back.
#include "support/harness.h"

#include <array>
#include <tuple>

using kxfuzz::require;

namespace {

constexpr std::array kSyntaxes = {EXS_LittleEndianImplicit,         EXS_LittleEndianExplicit, EXS_BigEndianExplicit,
                                  EXS_DeflatedLittleEndianExplicit, EXS_JPEGProcess1,         EXS_RLELossless};

/// Every function, every form of target, copies within and between VRs, deletes. The variables read what the input may
/// hold, the targets are where the samples have something. None writes pixel data: DCMTK cannot write a dataset whose pixel
/// data is partly compressed in the transfer syntax it came in.
constexpr const char* kRules = R"($(id)=or((0010,0020),USER(f),"none")
$(@date)=if(and((0008,0020),not(equals((0008,0020),""))),(0008,0020),"20200229")
$(age)=dicomAge($(@date),(0010,0030))
$(sum)=add((0020,0013),(0028,0010),"1")
$(diff)=sub($(sum),mul((0028,0010),"2"))
$(part)=div($(sum),mod((0020,0013),"3"))
$(low)=between((0020,0013),"0","100")
$(any)=rnd("1000",(0010,0020))
(0010,1010)=$(age)
(0010,0010)=concat(toUpper(split((0010,0010),"^",1)),"^",toLower(substr((0010,0010),"1","64")))
(0010,0020)=codestring($(id),"\\^")
(0008,0050)=codenumber((0008,0050))
(0008,0060)=translate((0008,0060),(0008,0060),"US","CT",NULL(),"OT")
(0008,0090)=if(contains((0008,0008),"AXIAL"),indexof((0008,0008),"AX"),strlen((0008,0008)))
(0008,1030)=(0008,0008),"\\",2
(0010,1000)=(0010,0020)
(0010,4000)=(0008,0090)
(0020,0011)=(0020,0013)
(0028,0011)=(0028,0010)
(0028,0010)=(0020,0013)
(0018,1063)=(0018,0050)
(0042,0010)=(0042,0011)
(0042,0011)=(0009,1002)
(0009,1001)=(0042,0011)
(0009,1002)=NULL()
(0009,0010)=(0009,0010)
(0075,1001)=(0010,0020)
(0075,100b)=$(sum)
(0075,100d)=(0040,0275)
(0008,1140)=(0040,0275)
(0010,2180)=SEQ(0040,0275,0,0040,0007)
SEQ(0040,0275,0,0040,0007)=concat((SEQ(0040,0275,1,0040,0007)),$(any))
SEQ(0040,0275,0,0040,0008,1,0008,0100)=(0008,0060)
SEQ(0040,0275,1,0040,0007)=NULL()
SEQ(0040,0275,1,0008,1140)=(0040,0275)
USER(f)=(0010,0010)
USER(g)=(0042,0011)
(0028,0009)=NULL()
)";

Mapping& mapping()
{
    static Mapping rules(kRules, "AE");
    static const bool areAllGood = (require(errorlogs.empty(), "every rule here is good"), true);
    std::ignore = areAllGood;
    return rules;
}

/// What is left of a dataset once every element that a rule writes is taken out.
std::optional<std::string> untouched(const DcmDataset& dataset, E_TransferSyntax syntax)
{
    DcmDataset rest(dataset);
    for (const Assignment* assignment : mapping().assignments) kxfuzz::removeTarget(rest, *assignment->lvalue);
    return kxfuzz::written(rest, syntax);
}

/// Reads a dataset as DCMTK writes it again, so that what differs later was done by the rules.
/// @return null for one that DCMTK does not write and read again to the same bytes by itself.
std::unique_ptr<DcmDataset> readStable(DcmDataset& raw, E_TransferSyntax syntax)
{
    const std::optional<std::string> first = kxfuzz::written(raw, syntax);
    if (!first) return nullptr;
    std::unique_ptr<DcmDataset> dataset = kxfuzz::read(*first, syntax);
    if (!dataset || kxfuzz::written(*dataset, syntax) != first) return nullptr;
    return dataset;
}

void applyTo(DcmDataset& dataset)
{
    MappingSession session = kxfuzz::sampleSession(&dataset);
    require(mapping().apply(session) == 0, "a mapping says 0");
    std::ignore = mapping().apply(session);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    if (size == 0) return 0;
    kxfuzz::begin(size);
    const E_TransferSyntax syntax = kSyntaxes[data[0] % kSyntaxes.size()];
    const std::string_view bytes(reinterpret_cast<const char*>(data) + 1, size - 1);

    const std::unique_ptr<DcmDataset> raw = kxfuzz::read(bytes, syntax);
    if (!raw) return 0; // a server refuses it, too
    const std::unique_ptr<DcmDataset> dataset = readStable(*raw, syntax);
    applyTo(*raw); // whatever DCMTK hands out, it must be safe to apply rules to it
    if (!dataset) return 0;
    const std::optional<std::string> before = untouched(*dataset, syntax);
    applyTo(*dataset);
    require(untouched(*dataset, syntax) == before, "what no rule names stays to the byte");
    kxfuzz::requireReadsBack(*dataset, syntax);
    return 0;
}
