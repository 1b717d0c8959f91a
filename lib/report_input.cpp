// lib/report_input.cpp - library: cuts reports out of a port's input, in step and out of step.
// Uses lib/report.h, the loss counters of lib/link.h. Does no I/O.
// Thread: the port's receiver.
// SPDX-License-Identifier: MIT
#include "lib/report_input.h"

#include "lib/link.h"

#include <algorithm>
#include <optional>

namespace tavu {
namespace {

using namespace std::chrono_literals;

// A module sends a report in one go: its bytes follow each other within the latency of the driver.
constexpr auto kBodyGap = 20ms;

// A search that passes over this many bytes has the wrong idea of how reports close.
constexpr std::size_t kSoughtBytes = 4096;

// Each judgement either settles the step or drops bytes (nullopt), so that it is judged anew.
using Judgement = std::optional<Step>;

Bytes at_hand(const ReportInput& input) {
    return Bytes(input.bytes).subspan(input.begin, input.end - input.begin);
}

// ---- Outcomes ----

Step report_taken(ReportInput& input, Bytes report, Closing closing) {
    input.begin += report.size();
    input.closing = std::min(closing, input.last_closing);
    input.last_closing = closing;
    input.is_in_step = true;
    input.is_on_trial = false;
    return {Outcome::kReport, report};
}

Step more_or_nothing(ReportInput& input, bool is_silent, std::chrono::milliseconds gap) {
    input.is_exhausted = is_silent;
    return is_silent ? Step{Outcome::kNothing} : Step{Outcome::kMore, {}, gap};
}

// The report at hand is not complete. When it has stopped arriving, what is there is kept.
Step incomplete(ReportInput& input, bool is_silent, std::chrono::milliseconds gap) {
    if (is_silent) {
        input.part = input.end - input.begin;
    }
    return more_or_nothing(input, is_silent, gap);
}

void search_begin(ReportInput& input) {
    input.is_in_step = false;
    input.is_on_trial = false;
    input.sought = input.begin;
    input.passed = 0;
}

Step unknown_header(ReportInput& input, const Dialect& dialect) {
    loss_add(loss.header_unknown);
    input.begin += dialect.unit;
    if (input.is_in_step && input.is_on_trial) {
        search_begin(input);
    } else {
        input.is_on_trial = true;
    }
    return {Outcome::kNothing};
}

Judgement part_dropped(ReportInput& input) {
    loss_add(input.part < kHeaderBytes ? loss.header_short : loss.body_incomplete);
    input.begin += input.part;
    input.part = 0;
    search_begin(input);
    return std::nullopt;
}

// ---- Whole reports ----

// How a report has to end on a port whose reports close so: the sum may be any.
Closing expected_end(const ReportInput& input) {
    return std::min(input.closing, Closing::kEndOfLine);
}

// Whether those are the bytes of one report to the last, whatever its end.
bool is_exactly_a_report(Bytes bytes, const Dialect& dialect) {
    return bytes.size() >= dialect.unit && dialect.report_length(bytes) == bytes.size();
}

// Whether the stream goes on there: with nothing, with a report that has not come whole, or with
// reports of which one ends in CR LF, however those before it close.
bool is_continued(Bytes bytes, const Dialect& dialect) {
    while (bytes.size() >= dialect.unit) {
        const std::size_t length = dialect.report_length(bytes);
        if (length == 0 || length > bytes.size()) {
            return length != 0;
        }
        const Bytes report = bytes.first(length);
        if (!is_plausible(report)) {
            return false;
        }
        if (closing_of(report) >= Closing::kEndOfLine) {
            return true;
        }
        bytes = bytes.subspan(length);
    }
    return bytes.empty();
}

// Whether a report stands there that has that end, and the stream goes on behind it.
bool begins_with_report(Bytes bytes, const Dialect& dialect, Closing end) {
    if (bytes.size() < dialect.unit) {
        return false;
    }
    const std::size_t length = dialect.report_length(bytes);
    return length != 0 && bytes.size() >= length && closing_of(bytes.first(length)) >= end &&
           is_continued(bytes.subspan(length), dialect);
}

// What may begin at a place where no report is due: that takes more than a header.
struct Candidate {
    bool is_possible;
    std::size_t length;  // 0: not enough bytes to tell, or to be complete
    Closing closing;
};

Candidate candidate_at(Bytes bytes, const Dialect& dialect) {
    if (bytes.size() < dialect.unit) {
        return {true, 0, {}};
    }
    const std::size_t length = dialect.report_length(bytes);
    if (length == 0 || bytes.size() < length) {
        return {length != 0, 0, {}};
    }
    const Bytes report = bytes.first(length);
    return {is_plausible(report), length, closing_of(report)};
}

// How much speaks for a whole report at that place of the buffer. The tail of a broken report can
// look like one, so it should stand behind the end of a line; at any other place the checksum has
// to speak for it. A port whose reports have shown neither has nothing but the end of its own line.
enum class Evidence { kNone, kSome, kStrong };

Evidence evidence_for(const ReportInput& input, const Candidate& candidate, std::size_t place) {
    if (!candidate.is_possible ||
        candidate.closing < std::max(input.closing, Closing::kEndOfLine)) {
        return Evidence::kNone;
    }
    const unsigned char before = place == 0 ? 0 : input.bytes[place - 1];
    if (before == '\n' || before == '\r' || input.closing == Closing::kAny) {
        return Evidence::kStrong;
    }
    return candidate.closing == Closing::kChecksum ? Evidence::kSome : Evidence::kNone;
}

// Where inside the next `length` bytes a whole report begins; 0 if nowhere. The strongest evidence
// decides, then the order.
std::size_t inner_report(const ReportInput& input, const Dialect& dialect, std::size_t length) {
    const Bytes bytes = at_hand(input);
    std::size_t found = 0;
    Evidence best = Evidence::kNone;
    for (std::size_t offset = 1; offset < length; ++offset) {
        const Candidate candidate = candidate_at(bytes.subspan(offset), dialect);
        const Evidence evidence = evidence_for(input, candidate, input.begin + offset);
        if (evidence > best) {
            best = evidence;
            found = offset;
        }
    }
    return found;
}

// ---- In step ----

// What stands in and behind a doubtful report tells, once there is enough of it.
bool is_open_to_doubt(const ReportInput& input, Bytes report, bool is_silent) {
    return !is_silent && at_hand(input).size() < report.size() + kLongestReport;
}

// A complete report that does not close as those before it did: bytes of it are missing, or there
// are some too many, or the module closes its reports one way and another.
Judgement doubtful_judged(ReportInput& input, const Dialect& dialect, Bytes report,
                          bool is_silent) {
    if (is_open_to_doubt(input, report, is_silent)) {
        return Step{Outcome::kMore, {}, kBodyGap};
    }
    const std::size_t inner = inner_report(input, dialect, report.size());
    const Bytes next = at_hand(input).subspan(report.size());
    const bool is_going_on =
        next.empty() || (is_plausible(report) && (closing_of(report) >= expected_end(input) ||
                                                  is_continued(next, dialect)));
    if (inner == 0 && is_going_on) {
        return report_taken(input, report, closing_of(report));
    }
    loss_add(loss.body_incomplete);
    input.begin += inner;
    if (inner == 0) {
        search_begin(input);
        ++input.sought;
    }
    return std::nullopt;
}

Judgement plainly_judged(ReportInput& input, const Dialect& dialect, bool is_silent) {
    const Bytes bytes = at_hand(input);
    if (bytes.size() < dialect.unit) {
        return incomplete(input, is_silent, dialect.unit_gap);
    }
    const std::size_t length = dialect.report_length(bytes);
    if (length == 0) {
        return unknown_header(input, dialect);
    }
    if (bytes.size() < length) {
        return incomplete(input, is_silent, kBodyGap);
    }
    const Bytes report = bytes.first(length);
    const Closing closing = closing_of(report);
    if (closing < input.closing) {
        return doubtful_judged(input, dialect, report, is_silent);
    }
    return report_taken(input, report, closing);
}

// A report that had stopped arriving, with what has come behind it.
Judgement part_judged(ReportInput& input, const Dialect& dialect, bool is_silent) {
    const Bytes bytes = at_hand(input);
    const bool has_header = bytes.size() >= dialect.unit;
    const std::size_t length = has_header ? dialect.report_length(bytes) : dialect.unit;
    if (length == 0) {
        return part_dropped(input);
    }
    if (bytes.size() < length) {
        // Whole reports do not wait for others to complete the part before them.
        if (is_silent &&
            begins_with_report(bytes.subspan(input.part), dialect, expected_end(input))) {
            return part_dropped(input);
        }
        return more_or_nothing(input, is_silent, has_header ? kBodyGap : dialect.unit_gap);
    }
    const Bytes report = bytes.first(length);
    const Closing closing = closing_of(report);
    const bool is_doubtful = closing != Closing::kChecksum;
    if (is_doubtful && is_open_to_doubt(input, report, is_silent)) {
        return Step{Outcome::kMore, {}, kBodyGap};
    }
    if (closing == Closing::kAny || (is_doubtful && inner_report(input, dialect, length) != 0)) {
        return part_dropped(input);
    }
    input.part = 0;
    return report_taken(input, report, closing);
}

// ---- Out of step ----

void passed_over(ReportInput& input, std::size_t place) {
    const std::size_t count = place - input.begin;
    loss_add(loss.passed_over, count);
    input.passed += count;
    input.begin = place;
}

// Whether it is the first place where a report can begin; then nothing needs to stand before it.
bool is_due(const ReportInput& input, const Candidate& candidate, std::size_t place) {
    return input.passed == 0 && place == input.begin && candidate.is_possible &&
           candidate.closing >= std::max(input.closing, Closing::kEndOfLine);
}

// Looks for a report from `sought` on. Found: it is the next one, in step again (true). Otherwise
// `sought` becomes the first place where one may still prove to begin.
bool report_sought(ReportInput& input, const Dialect& dialect, bool is_silent) {
    std::size_t found = input.end;
    std::size_t undecided = input.end;
    Evidence best = Evidence::kNone;
    for (std::size_t place = std::max(input.sought, input.begin);
         place < input.end && best != Evidence::kStrong; ++place) {
        const Candidate candidate =
            candidate_at(Bytes(input.bytes).subspan(place, input.end - place), dialect);
        const Evidence evidence = is_due(input, candidate, place)
                                      ? Evidence::kStrong
                                      : evidence_for(input, candidate, place);
        if (evidence > best) {
            best = evidence;
            found = place;
        }
        if (candidate.is_possible &&
            (candidate.length == 0 || place + candidate.length == input.end)) {
            undecided = std::min(undecided, place);
        }
    }
    // Better evidence may still come behind what there is some for.
    const bool may_improve =
        best == Evidence::kSome && !is_silent && input.end - found < 2 * kLongestReport;
    if (best == Evidence::kNone || may_improve) {
        input.sought = std::min(found, undecided);
        return false;
    }
    passed_over(input, found);
    input.is_in_step = true;
    return true;
}

Judgement out_of_step_judged(ReportInput& input, const Dialect& dialect, bool is_silent) {
    if (report_sought(input, dialect, is_silent)) {
        return std::nullopt;
    }
    if (input.closing == Closing::kAny) {
        return plainly_judged(input, dialect, is_silent);
    }
    const Bytes bytes = at_hand(input);
    if (is_silent && is_exactly_a_report(bytes, dialect)) {
        return report_taken(input, bytes, closing_of(bytes));
    }
    passed_over(input, input.sought);
    if (input.passed >= kSoughtBytes) {
        input.closing = Closing::kAny;
        input.is_in_step = true;
        return std::nullopt;
    }
    return more_or_nothing(input, is_silent, kBodyGap);
}

}  // namespace

Step input_step(ReportInput& input, const Dialect& dialect, bool is_silent) {
    input.is_exhausted = false;
    Judgement step;
    while (!step) {
        if (input.begin == input.end) {
            step = Step{Outcome::kNothing};
        } else if (input.part > 0) {
            step = part_judged(input, dialect, is_silent);
        } else if (!input.is_in_step) {
            step = out_of_step_judged(input, dialect, is_silent);
        } else {
            step = plainly_judged(input, dialect, is_silent);
        }
    }
    return *step;
}

std::span<unsigned char> input_room(ReportInput& input) {
    if (input.begin == input.end || input.bytes.size() - input.end < kReadBytes) {
        // The byte before stays: a search asks whether a line ended there.
        const std::size_t shift = std::max<std::size_t>(input.begin, 1) - 1;
        std::copy(input.bytes.begin() + static_cast<std::ptrdiff_t>(shift),
                  input.bytes.begin() + static_cast<std::ptrdiff_t>(input.end),
                  input.bytes.begin());
        input.begin -= shift;
        input.end -= shift;
        input.sought -= std::min(input.sought, shift);
    }
    return std::span(input.bytes).subspan(input.end);
}

void input_added(ReportInput& input, std::size_t count) {
    input.end += count;
    input.is_exhausted = false;
}

void input_drop(ReportInput& input) {
    loss_add(loss.discarded, input.end - input.begin);
    input.begin = input.end;
    input.part = 0;
    input.is_on_trial = input.closing != Closing::kAny;
    input.is_exhausted = false;
}

}  // namespace tavu
