// SPDX-License-Identifier: BSD-3-Clause
// Exhausted memory: every allocation of loading, checking and applying fails in turn, alone and with all that follow.
// Then nothing of ours is lost, nothing is half-built, and the same work on the same objects comes out right.
//
// What belongs to DCMTK, and is left to it here: `putString` asks for memory in a way that does not throw, and leaves
// the value empty; copying a sequence loses the copy's items, see copiesOfSequences.
#include "memory/heap.h"
#include "support/fixture.h"

#include <dcmtk/dcmdata/dcistrmb.h>
#include <dcmtk/dcmdata/dcostrmb.h>
#include <dcmtk/oflog/logger.h>
#include <dcmtk/oflog/nullap.h>

#include <gmock/gmock.h>

#include <cstdlib>
#include <functional>
#include <map>
#include <new>
#include <sstream>

namespace {
namespace heap = kxtest::heap;

/// Every built-in and every target. Applied again to what a broken-off run left, they come to the same end.
constexpr const char* kRules = R"((0008,0080)=toUpper((0010,0010))
(0010,4000)=concat((0010,0020),"-a text that no small string has room for-",toLower(ABC))
(0008,0090)=NULL()
(0010,1000)=(0010,0020)
(0009,1001)=(0010,0020)
(0028,2000)=(0042,0011)
(0028,0011)=(0028,0010)
(0020,0013)=(0028,0010)
(0008,1030)=(0010,0010),"^",1
(0075,1001)=(0010,0020)
SEQ(0040,0275,0,0040,0007)=substr((0010,0020),2,3)
SEQ(0040,0275,0,0040,0008,1,0008,0104)=SEQ(0040,0275,1,0040,0007)
SEQ(0040,0275,0,0040,0008,0,0008,0100)=NULL()
SEQ(0040,0275,9,0040,0007)=nowhere
USER(field)=split((0010,0010),"^",2)
USER(gone)=NULL()
$(plain)=if(equals(a,a),add(1,2),sub(3,4))
$(@lasting)=or(NULL(),mul(2,3))
$(no)=NULL()
USER(all)=concat($(plain),$(@lasting),USER(field),strlen(abc),indexof(abc,b),contains(abc,b),between(2,1,3),codenumber(47))
USER(rest)=concat(codestring("hello",x),rnd(9,s),dicomAge(20200101,19900101),translate(a,b,a,c),mod(7,4),div(9,2),not(NULL()))
USER(both)=and(a,b,((0010,0010)))
)";
constexpr std::size_t kRuleCount = 22;

/// One piece of work, with all that it works on.
class Trial {
public:
    Trial() = default;
    Trial(const Trial&) = delete;
    Trial& operator=(const Trial&) = delete;
    virtual ~Trial() = default;
    virtual void work() = 0;

    /// Looks at what is left, and does the work again with memory enough.
    /// @param isWhole whether it came to its end, without an exception.
    virtual void check(bool isWhole) = 0;
};

template <typename Kind, typename... Arguments>
std::function<std::unique_ptr<Trial>()> maker(Arguments... arguments)
{
    return [=] { return std::make_unique<Kind>(arguments...); };
}

/// Fails each allocation of the work in turn. @param mayLose what DCMTK loses; all of it may not be ours.
void starve(const std::function<std::unique_ptr<Trial>()>& make, const char* mayLose = nullptr,
            OFLogger::LogLevel level = OFLogger::OFF_LOG_LEVEL)
{
    dcmtk::log4cplus::Logger root = dcmtk::log4cplus::Logger::getRoot();
    root.removeAllAppenders();
    root.addAppender(dcmtk::log4cplus::SharedAppenderPtr(new dcmtk::log4cplus::NullAppender));
    root.setLogLevel(level);
    OFLOG_FATAL(logger, std::string(4096, ' ')); // the loggers keep room for the longest message so far
    const auto plenty = make();                  // what DCMTK makes once and keeps
    plenty->work();
    plenty->check(true);
    for (const bool isLasting : {false, true}) {
        long first = 0;
        for (bool isReached = true; isReached;) {
            SCOPED_TRACE(testing::Message() << "allocation " << ++first << (isLasting ? " and all later" : ""));
            auto trial = make();
            bool isWhole = false;
            {
                const heap::Shortage shortage(first, isLasting);
                try {
                    trial->work();
                    isWhole = true;
                } catch (const std::bad_alloc&) {
                    // may pass
                }
            }
            isReached = heap::seen() >= first;
            trial->check(isWhole);
            trial.reset();
            std::string().swap(errorlogs);
            if (heap::held() != 0) {
                const std::string losers = heap::heldBy();
                const bool isAllowed =
                    mayLose != nullptr && losers.starts_with(mayLose) && losers.find('\n') + 1 == losers.size();
                EXPECT_TRUE(isAllowed) << "not released, " << losers;
            }
            if (testing::Test::HasFailure()) return;
        }
        EXPECT_GT(first, 1);
    }
}

// Loading and checking ------------------------------------------------------------------------------------------------

std::string treesOf(const Mapping& mapping)
{
    std::ostringstream out;
    for (const Assignment* assignment : mapping.assignments) out << *assignment->expression << '\n';
    return out.str();
}

class Loading : public Trial {
public:
    explicit Loading(std::function<std::unique_ptr<Mapping>()> load) : load_(std::move(load)) {}
    void work() override { mapping_ = load_(); }
    void check(bool isWhole) override
    {
        if (isWhole) {
            ASSERT_NE(mapping_, nullptr);
        }
        static const std::string whole = treesOf(*load_());
        if (mapping_) {
            EXPECT_EQ(treesOf(*mapping_), whole);
        }
        EXPECT_EQ(load_()->assignments.size(), kRuleCount);
    }

private:
    std::function<std::unique_ptr<Mapping>()> load_;
    std::unique_ptr<Mapping> mapping_;
};

TEST(Memory, loadingATextAndAFile)
{
    starve(maker<Loading>([] { return std::make_unique<Mapping>(kRules, "text"); }));
    const kxtest::TempDir folder;
    const std::string path = folder.write("rules.map", kRules);
    starve(maker<Loading>([path] {
        const std::unique_ptr<std::FILE, int (*)(std::FILE*)> file(std::fopen(path.c_str(), "rt"), std::fclose);
        return std::make_unique<Mapping>(file.get(), "file");
    }));
}

class LoadingSets : public Trial {
public:
    explicit LoadingSets(bool isOutbound) : isOutbound_(isOutbound) {}
    void work() override
    {
        set_ = isOutbound_ ? std::make_unique<MappingSet>(true, "CT", true) : std::make_unique<MappingSet>();
    }
    void check(bool isWhole) override
    {
        if (isWhole) {
            ASSERT_NE(set_, nullptr);
        }
        if (!set_) work();
        ASSERT_TRUE(set_->pre != nullptr && set_->post != nullptr);
        EXPECT_EQ(set_->mappings.size(), isOutbound_ ? 1U : 2U);
        for (const Mapping* mapping : set_->mappings) EXPECT_EQ(mapping->assignments.size(), 2U);
    }

private:
    bool isOutbound_;
    std::unique_ptr<MappingSet> set_;
};

TEST(Memory, loadingSets)
{
    const kxtest::TempDir folder;
    for (const char* name : {"global/pre", "global/post", "global/outpre", "global/outpost", "CT", "CT.out"})
        folder.write("mappings/" + std::string(name) + ".map",
                     "(0010,0010)=concat(a,b)\nSEQ(0040,0275,0,0040,0007)=x\n");
    setenv("DICOM_VAR", folder.path().c_str(), 1);
    starve(maker<LoadingSets>(false));
    starve(maker<LoadingSets>(true));
    unsetenv("DICOM_VAR");
}

class Checking : public Trial {
public:
    Checking(std::string path, std::string expected) : path_(std::move(path)), expected_(std::move(expected)) {}
    ~Checking() override { release(); }
    void work() override { message_ = checkSyntaxInner(path_.c_str()); }
    void check(bool isWhole) override
    {
        EXPECT_TRUE(message_ != nullptr || !isWhole);
        if (message_ == nullptr) work();
        EXPECT_EQ(message_, expected_);
        release();
        work();
        EXPECT_EQ(message_, expected_);
    }

private:
    void release()
    {
        if (message_ != errorMsgEmpty) delete[] message_;
        message_ = nullptr;
    }

    std::string path_;
    std::string expected_;
    char* message_ = nullptr;
};

TEST(Memory, checking)
{
    const kxtest::TempDir folder;
    starve(maker<Checking>(folder.write("good.map", kRules), ""));
    starve(maker<Checking>(folder.write("bad.map", "(0010,0010)=x\n(0010,0010)=foo(x)\n"),
                           "Syntax error in line: (0010,0010)=foo(x) [ Error: Unknown function:foo\n\n ]"));
    starve(maker<Checking>("/no/such.map", "Coercion couldn't open file: /no/such.map\n"));
}

/// Reads a second rule into an assignment that has one.
class Rereading : public Trial {
public:
    explicit Rereading(const char* line) : line_(line) { assignment_.readCfgLine("USER(field)=concat(a,b)"); }
    void work() override { assignment_.readCfgLine(line_); }
    void check(bool /*isWhole*/) override
    {
        const auto dataset = kxtest::sampleDataset();
        MappingSession session;
        session.dataset = dataset.get();
        const bool isWhole = assignment_.lvalue != nullptr && assignment_.expression != nullptr;
        EXPECT_EQ(assignment_.apply(session), isWhole ? 0 : 1);
        work();
        EXPECT_EQ(assignment_.apply(session), 0);
        EXPECT_EQ(kxtest::textOf(*dataset, DcmTagKey(0x0010, 0x4000)), "xy");
    }

private:
    Assignment assignment_;
    const char* line_;
};

TEST(Memory, rereadingALine)
{
    starve(maker<Rereading>("(0010,4000)=concat(x,y)"));
}

// Applying ------------------------------------------------------------------------------------------------------------

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
