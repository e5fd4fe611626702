// Prints the programme guide.
#ifndef ATSC_TV_GUIDE_GUIDE_VIEW_H_
#define ATSC_TV_GUIDE_GUIDE_VIEW_H_

#include <cstddef>
#include <cstdint>
#include <ostream>
#include <string>

#include "guide/guide.h"

namespace apps::tv {

// Prints a grid with a row for each channel and a column for each half hour of `span`. Half hours
// that do not fit into `width` columns follow in further bands below; a terminal too narrow for two
// half hours gets a list. Programmes that are on at `now` are printed in bold if `bold` is set,
// else marked.
void printGrid(std::ostream& out, const Guide& guide, Span span, int64_t now, size_t width,
               bool bold);

// Prints the programmes of each channel with all their details.
void printDetails(std::ostream& out, const Guide& guide, int64_t now, size_t width, bool bold);

// Prints one line for each programme, with columns separated by tabs, for other programs to read.
void printLines(std::ostream& out, const Guide& guide, const Source& source);

// Return the title of a programme, and the text to print after the title: "  TV-14-L-V  [CC]".
std::string titleOf(const Programme& programme);
std::string ratingAndCaptions(const Programme& programme);

// Printed for a channel without a guide.
inline constexpr const char* kNoInformation = "no programme information";

// Names the columns of printLines(), for a help text.
extern const char* const kLinesForm;

}  // namespace apps::tv

#endif  // ATSC_TV_GUIDE_GUIDE_VIEW_H_
