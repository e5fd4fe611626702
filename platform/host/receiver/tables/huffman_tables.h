// Huffman trees of compressed texts.
#ifndef ATSC_HOST_RECEIVER_TABLES_HUFFMAN_TABLES_H_
#define ATSC_HOST_RECEIVER_TABLES_HUFFMAN_TABLES_H_

#include <cstddef>
#include <cstdint>

namespace atschost {

// One tree for each 7-bit character that may stand before the one to be decoded. First a big-endian
// 16-bit offset for each of the 128 trees, then the trees. A node is two bytes, the branches for
// bit 0 and bit 1: below 0x80 the index of the next node of that tree, else 0x80 + the character.
struct HuffmanTrees {
  const uint8_t* bytes;
  size_t size;
};

extern const HuffmanTrees kTitleTrees;        // compression_type 1
extern const HuffmanTrees kDescriptionTrees;  // compression_type 2

}  // namespace atschost

#endif  // ATSC_HOST_RECEIVER_TABLES_HUFFMAN_TABLES_H_
