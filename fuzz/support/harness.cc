// SPDX-License-Identifier: BSD-3-Clause
// The fuzz targets' shared ground.
#include "support/harness.h"

#include "KXItem.h"
#include "support/sample.h"

#include <dcmtk/dcmdata/dcistrmb.h>
#include <dcmtk/dcmdata/dcostrmb.h>
#include <dcmtk/oflog/nullap.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <iterator>
#include <tuple>
#include <unistd.h>
#include <vector>

namespace {

constexpr std::size_t kDebugEvery = 16;
/// Rules like $(b)=concat($(a),$(a)) double a text with each line, and copies of a sequence into itself do so with the
/// dataset. That is the language; here such runs end early, since they cost time and find nothing.
constexpr std::size_t kMaxValueBytes = 16384;

ssize_t discard(void* /*cookie*/, const char* /*bytes*/, std::size_t count)
{
    return static_cast<ssize_t>(count);
}

/// Operands that are no numbers are reported on standard error, millions of times here. glibc lets the stream be
/// replaced; what the sanitizers and libFuzzer itself have to say goes on to the descriptor.
void silenceProcess()
{
    cookie_io_functions_t sink = {};
    sink.write = discard;
    if (std::FILE* stream = fopencookie(nullptr, "w", sink)) stderr = stream;
    OFLog::configure(OFLogger::OFF_LOG_LEVEL);
    logger.setAdditivity(false);
    logger.addAppender(dcmtk::log4cplus::SharedAppenderPtr(new dcmtk::log4cplus::NullAppender));
}

DcmDataset& sample()
{
    static const std::unique_ptr<DcmDataset> dataset = kxtest::sampleDataset();
    return *dataset;
}

/// What a value brings into its target.
std::size_t weight(Value* value)
{
    if (value == nullptr) return 0;
    if (DcmElement* element = *value; element != nullptr && !element->isLeaf())
        return element->calcElementLength(EXS_LittleEndianExplicit, EET_ExplicitLength);
    return std::string_view(value->getString()).size();
}

} // namespace

/// DCMTK asks for as much memory as a length in the bytes says, up to 4 GiB, before it looks whether the bytes go on.
/// That is refused here as on a machine that lacks it, and DCMTK then finds fault with the dataset.
extern "C" const char* __asan_default_options(); // NOLINT(bugprone-reserved-identifier): named by the sanitizer
extern "C" const char* __asan_default_options()
{
    return "allocator_may_return_null=1:max_allocation_size_mb=32:detect_stack_use_after_return=1";
}

extern "C" const char* __ubsan_default_options(); // NOLINT(bugprone-reserved-identifier): named by the sanitizer
extern "C" const char* __ubsan_default_options()
{
    return "print_stacktrace=1";
}

void kxfuzz::begin(std::size_t inputBytes)
{
    static const bool isSilent = (silenceProcess(), true);
    std::ignore = isSilent;
    logger.setLogLevel(inputBytes % kDebugEvery == 0 ? OFLogger::DEBUG_LOG_LEVEL : OFLogger::OFF_LOG_LEVEL);
    errorlogs.clear();
    gseed = 0;
}

void kxfuzz::require(bool holds, const char* what)
{
    if (holds) return;
    const std::string message = std::string("fuzz: does not hold: ") + what + '\n';
    std::ignore = write(STDERR_FILENO, message.data(), message.size());
    std::abort();
}

MappingSession kxfuzz::sampleSession(DcmDataset* dataset)
{
    MappingSession session;
    session.dataset = dataset;
    session.setVariable("a", "one,two,,four");
    session.setVariable("b", "");
    session.setVariable("@g", "global");
    session.customFields.setFieldValue("f", "19700101");
    session.customFields.setFieldValue("n", "-2147483648");
    return session;
}

std::unique_ptr<DcmDataset> kxfuzz::sampleCopy()
{
    return std::make_unique<DcmDataset>(sample());
}

kxfuzz::ValueOwner::~ValueOwner()
{
    if (value != nullptr && --value->refCount == 0) delete value;
}

std::optional<std::string> kxfuzz::written(DcmDataset& dataset, E_TransferSyntax syntax)
{
    static std::vector<char> room(std::size_t{1} << 16);
    DcmOutputBufferStream stream(room.data(), static_cast<offile_off_t>(room.size()));
    std::string bytes;
    const auto take = [&] {
        void* part = nullptr;
        offile_off_t length = 0;
        stream.flushBuffer(part, length);
        bytes.append(static_cast<const char*>(part), static_cast<std::size_t>(length));
    };
    dataset.transferInit();
    OFCondition result;
    do {
        result = dataset.write(stream, syntax, EET_ExplicitLength, nullptr);
        take();
    } while (result == EC_StreamNotifyClient);
    dataset.transferEnd();
    while (result.good() && !stream.isFlushed()) { // what a deflated stream still holds
        stream.flush();
        take();
    }
    return result.good() ? std::optional(std::move(bytes)) : std::nullopt;
}

std::unique_ptr<DcmDataset> kxfuzz::read(std::string_view bytes, E_TransferSyntax syntax)
{
    auto dataset = std::make_unique<DcmDataset>();
    DcmInputBufferStream stream;
    stream.setBuffer(bytes.data(), static_cast<offile_off_t>(bytes.size()));
    stream.setEos();
    dataset->transferInit();
    const OFCondition result = dataset->read(stream, syntax);
    dataset->transferEnd();
    return result.good() ? std::move(dataset) : nullptr;
}

void kxfuzz::requireReadsBack(DcmDataset& dataset, E_TransferSyntax syntax)
{
    const std::optional<std::string> first = written(dataset, syntax);
    require(first.has_value(), "the dataset can be written");
    const std::unique_ptr<DcmDataset> again = read(*first, syntax);
    require(again != nullptr, "what was written can be read");
    require(written(*again, syntax) == first, "what was read is written to the same bytes");
}

void kxfuzz::removeTarget(DcmDataset& dataset, const LVObject& target)
{
    const auto* tag = dynamic_cast<const LVDicomTag*>(&target);
    if (tag == nullptr) return;
    DcmTagKey key = tag->tag;
    if (const auto* path = dynamic_cast<const LVSeqDicomTag*>(tag))
        key.set(static_cast<Uint16>(path->path.front()), static_cast<Uint16>(*std::next(path->path.begin())));
    for (const DcmTagKey& gone : {key, DcmTagKey(KXItem::kGroup, KXItem::kCreatorElement)})
        std::unique_ptr<DcmElement>(dataset.remove(gone)).reset();
}

bool kxfuzz::isConstant(const Expression& expression)
{
    const FunctionDef* func = expression.func;
    if (func == &f_empty && expression.params.size() == 2) return false;
    if (func == &f_var || func == &f_user || func == &f_seq || func == &f_rnd) return false;
    return std::all_of(expression.params.begin(), expression.params.end(),
                       [](const Expression* param) { return isConstant(*param); });
}

bool kxfuzz::applyStepwise(const Mapping& mapping, MappingSession& session)
{
    gseed = 0;
    session.variables.clear();
    for (Assignment* assignment : mapping.assignments) {
        const ValueOwner owner(assignment->expression->getValue(session));
        require(owner.value == nullptr || owner.value->refCount == 1, "a value that is handed out has one holder");
        if (weight(owner.value) > kMaxValueBytes) return false;
        assignment->lvalue->assignValue(session, owner.value);
        require(owner.value == nullptr || owner.value->refCount == 1, "a target keeps no reference");
    }
    return true;
}
