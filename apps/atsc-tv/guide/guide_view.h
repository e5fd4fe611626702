// How the programme guide is shown.
#ifndef ATSC_TV_GUIDE_GUIDE_VIEW_H_
#define ATSC_TV_GUIDE_GUIDE_VIEW_H_

#include <cstddef>
#include <cstdint>
#include <ostream>
#include <string>

#include "guide/guide.h"

namespace tv {

// A row a channel, a column a half hour from the one that holds `now` on. What does not fit into
// `width` columns follows below; a terminal too narrow for that gets a list. What is on now
// is `bold` or, where that is not possible, marked.
void printGrid(std::ostream& out, const Guide& guide, Span span, int64_t now, size_t width,
               bool bold);

// The programmes of each channel with all there is to say about them.
void printDetails(std::ostream& out, const Guide& guide, int64_t now, size_t width, bool bold);

// For programs: a line a programme, columns separated by tabs.
void printLines(std::ostream& out, const Guide& guide, const Source& source);

// The title of a programme, and what follows it: "  TV-14-L-V  [CC]".
std::string titleOf(const Programme& programme);
std::string ratingAndCaptions(const Programme& programme);

// What is said of a channel without a guide.
inline constexpr const char* kNoInformation = "no programme information";

// What printLines() writes, for a help text.
extern const char* const kLinesForm;

}  // namespace tv

#endif  // ATSC_TV_GUIDE_GUIDE_VIEW_H_
