// SPDX-License-Identifier: BSD-3-Clause
// Calendar dates as DICOM writes them, and the age that one date has at another: what "dicomAge" computes with.
#pragma once

#include <string>

/// A day of the Gregorian calendar from 0001-01-01 to 9999-12-31, or no valid date. Immutable; reads and throws nothing
/// beside its text, in no locale.
class QVDate {
public:
    /// Reads a date text; blanks (0x20) around it are padding. Three forms are known, digits being ASCII throughout:
    /// - DA, `YYYYMMDD` (DICOM PS3.5 section 6.2);
    /// - DT, `YYYYMMDD[HH[MM[SS[.F]]]][&ZZXX]`, one to six digits F, `&` a sign, the offset from -1200 to +1400. The
    ///   time and the offset must be well formed and are then dropped: the day counts as it is written;
    /// - `YYYY.MM.DD`, the DA of ACR-NEMA.
    ///
    /// Everything else is invalid, a day that the month does not have and a second value after "\" included. So are the
    /// DT that stop before the day (`YYYY`, `YYYYMM`): an age counted from a guessed day could be wrong by a year.
    /// @param text NUL-terminated, not kept; null is invalid.
    QVDate(const char* text); // NOLINT(google-explicit-constructor): a text stands for its date

    /// @return whether the text was a date.
    bool isValid() const noexcept { return day_ != 0; }

    /// The age on this date of what began on `since`, in the form of the VR AS: three digits and a unit.
    ///
    /// The unit grows with the age, and only completed units count:
    /// - `D`, days: `000D` (the same day) to `027D`;
    /// - `W`, weeks: from 28 days on and below 3 months, `004W` to `013W`;
    /// - `M`, months: from 3 months on and below 24 months, `003M` to `023M`;
    /// - `Y`, years: from 24 months on, `002Y` to `999Y`.
    ///
    /// A month is complete on the same day of a later month, and on the 1st of the month after that when it lacks the
    /// day; so who was born on 29 February completes a common year on 1 March.
    /// @return empty when either date is invalid, `since` is later than this date, or 1000 years are complete.
    std::string ageSince(const QVDate& since) const;

private:
    int year_ = 0;
    unsigned month_ = 0;
    unsigned day_ = 0; ///< 0: no valid date
};
