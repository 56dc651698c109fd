// SPDX-License-Identifier: BSD-3-Clause
// What the fuzz targets share: a silent process, checks that end it, a session with something to find in it, and
// datasets as bytes and back.
#pragma once

#include "kxmap.h"

#include <dcmtk/dcmdata/dcxfer.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace kxfuzz {

/// Begins one input: an empty error log, the seed of "rnd" at 0, and the log switched off, or, for every sixteenth
/// length, at debug level into nothing. So a run depends on its input alone, and is the same when it is repeated.
void begin(std::size_t inputBytes);

/// Ends the process as a finding, naming what does not hold.
void require(bool holds, const char* what);

/// A session over a dataset, with variables, "@" variables and custom fields set.
MappingSession sampleSession(DcmDataset* dataset);

/// @return a copy of the tests' sample dataset, which is made once.
std::unique_ptr<DcmDataset> sampleCopy();

/// Holds one reference to a value, as who calls the engine does.
struct ValueOwner {
    Value* value;
    explicit ValueOwner(Value* given) : value(given) {}
    ValueOwner(const ValueOwner&) = delete;
    ValueOwner& operator=(const ValueOwner&) = delete;
    ~ValueOwner();
};

/// Writes a dataset, lengths explicit. @return its bytes; nothing when DCMTK cannot write it.
std::optional<std::string> written(DcmDataset& dataset, E_TransferSyntax syntax);

/// Reads a dataset. @return null when DCMTK finds fault with the bytes.
std::unique_ptr<DcmDataset> read(std::string_view bytes, E_TransferSyntax syntax);

/// Requires that a dataset can be written, read back, and written again to the same bytes.
void requireReadsBack(DcmDataset& dataset, E_TransferSyntax syntax);

/// Takes out of a dataset what a rule with that left side may have changed: the element, the whole sequence that a path
/// begins with, the private creator that the server's own elements bring along.
void removeTarget(DcmDataset& dataset, const LVObject& target);

/// Says whether a tree gives the same text whatever the session holds: no tag reference, variable, custom field,
/// sequence look-up or random number in it.
bool isConstant(const Expression& expression);

/// Applies a mapping rule by rule, as Mapping::apply does, and requires that nobody keeps a reference.
/// @return false when a value outgrew what is tried here, and then the run ended before it.
bool applyStepwise(const Mapping& mapping, MappingSession& session);

} // namespace kxfuzz
