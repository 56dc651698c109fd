// SPDX-License-Identifier: BSD-3-Clause
// Memory that runs out while mappings are loaded or checked: a line is dropped or whole, a set is whole or gone.
#include "memory/trial.h"

#include <cstdlib>
#include <sstream>

namespace {
using namespace kxtest;

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

} // namespace
