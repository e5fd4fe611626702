#include "guide/guide_view.h"

#include <algorithm>
#include <string>
#include <string_view>

#include "terminal/local_time.h"
#include "terminal/text.h"

namespace apps::tv {
namespace {

constexpr size_t kSlotWidth = 12;   // the narrowest readable half hour, in columns
constexpr size_t kMinutesFit = 10;  // the narrowest cell with ":35" before its title, in columns
constexpr size_t kNameWidth = 10;   // wide enough for short names of seven letters
constexpr const char* kDay = "%a %d %b";
constexpr const char* kFullDay = "%a %d %b %Y";
constexpr const char* kTimeOfDay = "%H:%M";
constexpr const char* kMark = "*";  // marks the current programme
constexpr const char* kBlockedMark = "!";
constexpr const char* kBlockedWord = "blocked";

bool isOn(const Programme& programme, int64_t now) {
  return programme.start <= now && now < programme.end;
}

std::string emphasized(const std::string& text, bool bold) {
  return bold ? "\033[1m" + text + "\033[m" : text;
}

std::string withoutEnd(std::string line) {
  line.erase(line.find_last_not_of(' ') + 1);
  return line;
}

std::string markedTitle(const Programme& programme) {
  return (programme.blocked ? kBlockedMark : "") + titleOf(programme);
}

// Prints the meaning of the mark of blocked programmes if the guide has any.
void printLegend(std::ostream& out, const Guide& guide) {
  for (const GuideChannel& channel : guide.channels) {
    for (const Programme& programme : channel.programmes) {
      if (!programme.blocked) continue;
      out << kBlockedMark << ' ' << kBlockedWord << '\n';
      return;
    }
  }
}

// Labels of the channels, in columns of equal width: "  5-1 KÉVA-1", numbers aligned to the right.
class Labels {
 public:
  explicit Labels(const Guide& guide) {
    for (const GuideChannel& channel : guide.channels) {
      number_ = std::max(number_, displayWidth(channel.number));
      name_ = std::max(name_, displayWidth(channel.name));
    }
    name_ = std::min(name_, kNameWidth);
  }

  size_t width() const { return number_ + 1 + name_; }

  std::string of(const GuideChannel& channel) const {
    return std::string(number_ - displayWidth(channel.number), ' ') + channel.number + ' ' +
           fitted(channel.name, name_);
  }

 private:
  size_t number_ = 0;
  size_t name_ = 0;
};

// A part of the grid that is as wide as the terminal.
class Band {
 public:
  Band(Span span, size_t width) : span_(span), width_(width) {}

  std::string titles() const {
    std::string line;
    size_t at = 0;
    for (int64_t time = span_.start; time < span_.end; time += kHalfHour) {
      const size_t next = column(time + kHalfHour);
      line += fitted("│" + localTime(time, kTimeOfDay), next - at);
      at = next;
    }
    return line;
  }

  // A later programme replaces an earlier one that it overlaps, as on the air.
  std::string row(const GuideChannel& channel, int64_t now, bool bold) const {
    std::string line;
    size_t at = 0;
    const auto last = channel.programmes.end();
    for (auto programme = channel.programmes.begin(); programme != last;) {
      const auto next = std::find_if(
          programme + 1, last, [](const Programme& other) { return other.end > other.start; });
      const size_t from = std::max(at, column(programme->start));
      const size_t to =
          column(next == last ? programme->end : std::min(programme->end, next->start));
      if (from < to) {
        line += gap(from - at);
        const bool on = isOn(*programme, now);
        line += emphasized(cell(*programme, to - from, on && !bold), on && bold);
        at = to;
      }
      programme = next;
    }
    return line + gap(width_ - at);
  }

 private:
  size_t column(int64_t time) const {
    const int64_t inside = std::clamp(time, span_.start, span_.end) - span_.start;
    return static_cast<size_t>(inside) * width_ / static_cast<size_t>(span_.end - span_.start);
  }

  static std::string gap(size_t width) {
    if (width == 0) return "";
    for (const char* text : {kNoInformation, "no information", "no info"}) {
      if (displayWidth(text) < width) return fitted(std::string("│") + text, width);
    }
    return fitted("│", width);
  }

  std::string cell(const Programme& programme, size_t width, bool marked) const {
    std::string text = "│";
    if (programme.start < span_.start) {
      text += "‹";
    } else if (halfHourStart(programme.start) != programme.start && width >= kMinutesFit) {
      text += localTime(programme.start, ":%M ");
    }
    return fitted(text + (marked ? kMark : "") + markedTitle(programme), width);
  }

  const Span span_;
  const size_t width_;
};

// Prints the guide as a list, for terminals too narrow for half hours.
void printList(std::ostream& out, const Guide& guide, int64_t now, size_t width, bool bold) {
  for (const GuideChannel& channel : guide.channels) {
    out << cut(channel.number + ' ' + channel.name, width) << '\n';
    for (const Programme& programme : channel.programmes) {
      if (programme.end <= now) continue;
      const bool on = isOn(programme, now);
      const std::string line = std::string(on && !bold ? kMark : " ") + ' ' +
                               localTime(programme.start, kTimeOfDay) + ' ' +
                               markedTitle(programme);
      out << emphasized(cut(line, width), on && bold) << '\n';
    }
    if (channel.programmes.empty()) out << cut(std::string("  ") + kNoInformation, width) << '\n';
  }
}

}  // namespace

std::string titleOf(const Programme& programme) {
  return programme.title.empty() || programme.title == "EMPTY" ? "(no title)" : programme.title;
}

std::string ratingAndCaptions(const Programme& programme) {
  return (programme.isRated() ? "  " + programme.rating : "") +
         (programme.captioned ? "  [CC]" : "");
}

void printGrid(std::ostream& out, const Guide& guide, Span span, int64_t now, size_t width,
               bool bold) {
  const Labels labels(guide);
  const size_t labelWidth = std::max(labels.width(), displayWidth(localTime(now, kDay)));
  if (width < labelWidth + 2 * kSlotWidth) {
    printList(out, guide, now, width, bold);
    printLegend(out, guide);
    return;
  }
  // Makes the bands almost equally long, so that the last band is not much shorter.
  const size_t columns = width - labelWidth - 1;
  const int64_t slots = std::max<int64_t>((span.end - span.start) / kHalfHour, 1);
  const int64_t fitting = static_cast<int64_t>(columns / kSlotWidth);
  const int64_t bands = (slots + fitting - 1) / fitting;
  const int64_t length = (slots + bands - 1) / bands * kHalfHour;
  const char* separator = "";
  for (int64_t start = span.start; start < span.end; start += length) {
    const int64_t end = std::min(start + length, span.end);
    const Band band({start, end},
                    columns * static_cast<size_t>(end - start) / static_cast<size_t>(length));
    out << separator << fitted(localTime(start, kDay), labelWidth) << ' '
        << withoutEnd(band.titles()) << '\n';
    for (const GuideChannel& channel : guide.channels) {
      out << fitted(labels.of(channel), labelWidth) << ' '
          << withoutEnd(band.row(channel, now, bold)) << '\n';
    }
    separator = "\n";
  }
  printLegend(out, guide);
}

void printDetails(std::ostream& out, const Guide& guide, int64_t now, size_t width, bool bold) {
  constexpr std::string_view kIndent = "      ";
  const size_t textWidth = std::max<size_t>(width, kIndent.size() + 20) - kIndent.size();
  const char* separator = "";
  for (const GuideChannel& channel : guide.channels) {
    out << separator << channel.number << ' ' << channel.name << '\n';
    separator = "\n";
    if (channel.programmes.empty()) out << "  " << kNoInformation << '\n';
    std::string day;
    for (const Programme& programme : channel.programmes) {
      if (const std::string programmeDay = localTime(programme.start, kFullDay);
          programmeDay != day) {
        out << "  " << programmeDay << '\n';
        day = programmeDay;
      }
      const std::string line = localTime(programme.start, kTimeOfDay) + '-' +
                               localTime(programme.end, kTimeOfDay) + "  " + titleOf(programme) +
                               " (" + std::to_string((programme.end - programme.start) / 60) +
                               " min)" + ratingAndCaptions(programme) +
                               (programme.blocked ? std::string("  ") + kBlockedWord : "");
      const char* indent = isOn(programme, now) ? "now " : "    ";
      for (const std::string& part : wrapped(line, textWidth)) {
        out << indent << emphasized(part, bold && isOn(programme, now)) << '\n';
        indent = kIndent.data();
      }
      for (const std::string& part : wrapped(programme.description, textWidth)) {
        out << kIndent << part << '\n';
      }
    }
  }
}

const char* const kLinesForm =
    "source, channel number, channel name, start, end (ISO 8601, local time), title, rating, CC or "
    "-, description, blocked or -";

void printLines(std::ostream& out, const Guide& guide, const Source& source) {
  for (const GuideChannel& channel : guide.channels) {
    for (const Programme& programme : channel.programmes) {
      out << source.name << '\t' << channel.number << '\t' << channel.name << '\t'
          << isoLocalTime(programme.start) << '\t' << isoLocalTime(programme.end) << '\t'
          << programme.title << '\t' << programme.rating << '\t'
          << (programme.captioned ? "CC" : "-") << '\t' << programme.description << '\t'
          << (programme.blocked ? kBlockedWord : "-") << '\n';
    }
  }
}

}  // namespace apps::tv
