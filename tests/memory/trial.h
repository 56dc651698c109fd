// SPDX-License-Identifier: BSD-3-Clause
// Exhausted memory: every allocation of a piece of work fails in turn, alone and with all that follow. Then nothing of
// ours is lost, nothing is half-built, and the same work on the same objects comes out right.
//
// What belongs to DCMTK, and is left to it here: `putString` lets go of the old text before it asks for memory; copying
// a sequence loses the copy's items, see copiesOfSequences.
#pragma once

#include "memory/heap.h"
#include "support/fixture.h"

#include <dcmtk/oflog/logger.h>
#include <dcmtk/oflog/nullap.h>

#include <functional>
#include <memory>
#include <new>

namespace kxtest {

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

/// Fails each allocation of the work in turn.
/// @param mayLose the one library whose blocks may be lost; null for none.
inline void starve(const std::function<std::unique_ptr<Trial>()>& make, const char* mayLose = nullptr,
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

} // namespace kxtest
