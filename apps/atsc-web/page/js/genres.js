// Categorical genre codes of the genre descriptor (A/65 table 6.20).

/** The first code of the table; the names follow without a gap. */
const kFirst = 0x20;

const kNames = [
  'Education', 'Entertainment', 'Movie', 'News', 'Religious', 'Sports', 'Other', 'Action',
  'Advertisement', 'Animated', 'Anthology', 'Automobile', 'Awards', 'Baseball', 'Basketball',
  'Bulletin', 'Business', 'Classical', 'College', 'Combat', 'Comedy', 'Commentary', 'Concert',
  'Consumer', 'Contemporary', 'Crime', 'Dance', 'Documentary', 'Drama', 'Elementary', 'Erotica',
  'Exercise', 'Fantasy', 'Farm', 'Fashion', 'Fiction', 'Food', 'Football', 'Foreign',
  'Fund raiser', 'Game/Quiz', 'Garden', 'Golf', 'Government', 'Health', 'High school', 'History',
  'Hobby', 'Hockey', 'Home', 'Horror', 'Information', 'Instruction', 'International', 'Interview',
  'Language', 'Legal', 'Live', 'Local', 'Math', 'Medical', 'Meeting', 'Military', 'Miniseries',
  'Music', 'Mystery', 'National', 'Nature', 'Police', 'Politics', 'Premier', 'Prerecorded',
  'Product', 'Professional', 'Public', 'Racing', 'Reading', 'Repair', 'Repeat', 'Review',
  'Romance', 'Science', 'Series', 'Service', 'Shopping', 'Soap opera', 'Special', 'Suspense',
  'Talk', 'Technical', 'Tennis', 'Travel', 'Variety', 'Video', 'Weather', 'Western', 'Art',
  'Auto racing', 'Aviation', 'Biography', 'Boating', 'Bowling', 'Boxing', 'Cartoon', 'Children',
  'Classic film', 'Community', 'Computers', 'Country music', 'Court', 'Extreme sports', 'Family',
  'Financial', 'Gymnastics', 'Headlines', 'Horse racing', 'Hunting/Fishing/Outdoors',
  'Independent', 'Jazz', 'Magazine', 'Motorcycle racing', 'Music/Film/Books',
  'News (international)', 'News (local)', 'News (national)', 'News (regional)', 'Olympics',
  'Original', 'Performing arts', 'Pets/Animals', 'Pop', 'Rock & Roll', 'Sci-Fi',
  'Self improvement', 'Sitcom', 'Skating', 'Skiing', 'Soccer', 'Track/Field', 'True',
  'Volleyball', 'Wrestling',
];

/** Returns the name of a genre code; empty for a code that the table does not have. */
export function genreName(code) {
  return kNames[code - kFirst] ?? '';
}

/** Returns [code, name] of those codes that have a name, in order of the names. */
export function namedGenres(codes) {
  return codes
    .map((code) => [code, genreName(code)])
    .filter(([, name]) => name)
    .sort((a, b) => a[1].localeCompare(b[1]));
}

/**
 * Returns the hue class of a programme (css/guide.css): what a viewer looks for by colour. The
 * first genre that has one decides.
 */
export function genreHue(codes) {
  for (const code of codes) {
    const hue = kHues.get(code);
    if (hue) return hue;
  }
  return '';
}

const kHues = new Map([
  ...[0x22, 0x89, 0x39, 0x3c, 0x61, 0x75, 0x70, 0x77].map((code) => [code, 'film']),
  ...[0x23, 0x2f, 0x92, 0x9a, 0x9b, 0x9c, 0x9d, 0x7e].map((code) => [code, 'news']),
  ...[0x25, 0x2d, 0x2e, 0x45, 0x4a, 0x50, 0x6b, 0x7a, 0x8e, 0x9e, 0xa7, 0xa8, 0xa9, 0xac, 0xad]
    .map((code) => [code, 'sports']),
  ...[0x29, 0x87, 0x88, 0x8f].map((code) => [code, 'children']),
  ...[0x31, 0x36, 0x60, 0x8c, 0x96, 0xa2, 0xa3].map((code) => [code, 'music']),
]);
