// SPDX-License-Identifier: BSD-3-Clause
// Memory that runs out while rules are applied: an element is as it was or as the rules make it, and the dataset can be
// written and read.
#include "memory/trial.h"

#include <dcmtk/dcmdata/dcistrmb.h>
#include <dcmtk/dcmdata/dcostrmb.h>
#include <gmock/gmock.h>

#include <map>
#include <sstream>

namespace {
using namespace kxtest;

std::string written(DcmDataset& dataset)
{
    std::vector<char> buffer(1 << 16);
    DcmOutputBufferStream out(buffer.data(), static_cast<offile_off_t>(buffer.size()));
    dataset.transferInit();
    EXPECT_TRUE(dataset.write(out, EXS_LittleEndianExplicit, EET_ExplicitLength, nullptr).good());
    dataset.transferEnd();
    void* bytes = nullptr;
    offile_off_t length = 0;
    out.flushBuffer(bytes, length);
    return {static_cast<const char*>(bytes), static_cast<std::size_t>(length)};
}

void expectReadable(DcmDataset& dataset)
{
    std::string bytes = written(dataset);
    DcmInputBufferStream in;
    in.setBuffer(bytes.data(), static_cast<offile_off_t>(bytes.size()));
    in.setEos();
    DcmDataset copy;
    copy.transferInit();
    EXPECT_TRUE(copy.read(in, EXS_LittleEndianExplicit).good());
    copy.transferEnd();
    EXPECT_EQ(written(copy), bytes);
}

/// Every element but sequences by its way through the items, as DCMTK prints it.
using Elements = std::map<std::string, std::string>;

void collect(DcmItem& item, const std::string& way, Elements& elements)
{
    for (DcmObject* object = item.nextInContainer(nullptr); object != nullptr; object = item.nextInContainer(object)) {
        const std::string place = way + object->getTag().toString().c_str();
        if (object->ident() == EVR_SQ) {
            auto& sequence = static_cast<DcmSequenceOfItems&>(*object);
            for (unsigned long i = 0; i < sequence.card(); ++i)
                collect(*sequence.getItem(i), place + std::to_string(i), elements);
            continue;
        }
        std::ostringstream out;
        object->print(out);
        EXPECT_TRUE(elements.emplace(place, object->getLength() == 0 ? "" : out.str()).second) << place << " twice";
    }
}

Elements elementsOf(DcmItem& dataset)
{
    Elements elements;
    collect(dataset, "", elements);
    return elements;
}

/// Passes when both are the same to the byte; else shows the elements.
void expectSame(DcmDataset& dataset, DcmDataset& expected)
{
    if (written(dataset) == written(expected)) return;
    EXPECT_THAT(elementsOf(dataset), testing::ContainerEq(elementsOf(expected)));
    ADD_FAILURE() << "the bytes differ";
}

/// An element is as it was or as the rules make it, and nothing between. Only an element that was not there, and
/// a text that DCMTK was to put, may be empty; (0009,1001) is neither, since the copy of an element takes its place.
void expectNothingBetween(const Elements& before, const Elements& after, const Elements& now)
{
    for (const auto& [place, text] : now) {
        const auto old = before.find(place);
        const auto made = after.find(place);
        ASSERT_TRUE(old != before.end() || made != after.end() || place == "(0075,0010)") << place;
        const bool mayBeEmpty = old == before.end() || place != "(0009,1001)";
        EXPECT_TRUE((old != before.end() && text == old->second) || (made != after.end() && text == made->second) ||
                    (mayBeEmpty && text.empty()))
            << place << " is " << text;
    }
    for (const auto& [place, text] : before) {
        EXPECT_TRUE(now.contains(place) || !after.contains(place)) << place << " is gone";
    }
    EXPECT_EQ(now.contains("(0075,0010)"), now.contains("(0075,1001)")) << "a reservation of nothing";
}

using Apply = std::function<void(MappingSession&)>;

class Applying : public Trial {
public:
    explicit Applying(Apply apply) : apply_(std::move(apply)) { session_.dataset = dataset_.get(); }
    void work() override { apply_(session_); }
    void check(bool isWhole) override
    {
        const auto reference = kxtest::sampleDataset();
        const Elements before = elementsOf(*reference);
        MappingSession session;
        session.dataset = reference.get();
        apply_(session);
        if (isWhole) expectSame(*dataset_, *reference);
        expectNothingBetween(before, elementsOf(*reference), elementsOf(*dataset_));
        expectReadable(*dataset_);

        work();
        expectSame(*dataset_, *reference);
        EXPECT_EQ(session_.customFields.fields(), session.customFields.fields());
        EXPECT_EQ(session_.variables, session.variables);
        EXPECT_EQ(session_.atVariables, session.atVariables);
    }

private:
    Apply apply_;
    std::unique_ptr<DcmDataset> dataset_ = kxtest::sampleDataset();
    MappingSession session_;
};

TEST(Memory, applying)
{
    const auto rules = std::make_shared<Mapping>(kRules, "rules");
    ASSERT_EQ(rules->assignments.size(), kRuleCount);
    starve(maker<Applying>([rules](MappingSession& session) { rules->apply(session); }));
}

// DCMTK reads a number before it lets go of the old one: only where there is no room for the new one is the element empty.
TEST(Memory, numbersStayUntilDcmtkLetsGo)
{
    Mapping rule("(0028,0010)=8", "rule");
    const DcmTagKey rows(0x0028, 0x0010);
    long kept = 0;
    long emptied = 0;
    for (long failing = 1;; ++failing) {
        DcmDataset dataset;
        ASSERT_TRUE(dataset.putAndInsertUint16(rows, 7).good());
        MappingSession session;
        session.dataset = &dataset;
        bool isExhausted = false;
        try {
            const heap::Shortage shortage(failing, false);
            rule.apply(session);
        } catch (const std::bad_alloc&) {
            isExhausted = true;
        }
        if (!isExhausted) break;
        Uint16 value = 0;
        const bool hasValue = dataset.findAndGetUint16(rows, value).good();
        EXPECT_TRUE(!hasValue || value == 7) << failing;
        ++(hasValue ? kept : emptied);
    }
    EXPECT_GE(kept, 2);
    EXPECT_EQ(emptied, 1);
}

// DCMTK then asks for memory after it has inserted an element, too.
TEST(Memory, applyingWhileAllIsLogged)
{
    const auto rules = std::make_shared<Mapping>(kRules, "rules");
    starve(maker<Applying>([rules](MappingSession& session) { rules->apply(session); }), nullptr,
           OFLogger::TRACE_LOG_LEVEL);
}

TEST(Memory, applyingAFileLineByLine)
{
    const kxtest::TempDir folder;
    const std::string path = folder.write(
        "rules.map", "(0010,1000)=concat((0010,0020),x)\n$(@a)=b\n(0010,0010)=foo(x)\nUSER(f)=(0010,0010)\n");
    starve(maker<Applying>([path](MappingSession& session) {
        std::list<LVObject*> targets;
        struct Releaser {
            std::list<LVObject*>& list;
            ~Releaser()
            {
                for (const LVObject* target : list) delete target;
            }
        } releaser{targets};
        Mapping::applyStatic(path.c_str(), session, &targets);
    }));
}

// The copy that DCMTK makes of a sequence is not told to us when it breaks off, so its items can only be lost in there.
TEST(Memory, copiesOfSequences)
{
    const auto rules = std::make_shared<Mapping>("(0040,0260)=(0040,0275)\n(0008,1140)=(0040,0275)", "rules");
    starve(maker<Applying>([rules](MappingSession& session) { rules->apply(session); }), "libdcmdata.so");
}

} // namespace
