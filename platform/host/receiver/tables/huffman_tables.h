// Huffman trees of compressed texts.
#ifndef ATSC_HOST_RECEIVER_TABLES_HUFFMAN_TABLES_H_
#define ATSC_HOST_RECEIVER_TABLES_HUFFMAN_TABLES_H_

#include <cstddef>
#include <cstdint>

namespace atschost {

// There is a tree for each 7-bit character that may precede the character to be decoded. The table
// starts with a big-endian 16-bit offset of each of the 128 trees; the trees follow. A node is two
// bytes, the branches for bit 0 and bit 1. A branch is the index of the next node of the tree
// (below 0x80), or 0x80 + the decoded character.
struct HuffmanTrees {
  const uint8_t* bytes;
  size_t size;
};

extern const HuffmanTrees kTitleTrees;        // compression_type 1
extern const HuffmanTrees kDescriptionTrees;  // compression_type 2

}  // namespace atschost

#endif  // ATSC_HOST_RECEIVER_TABLES_HUFFMAN_TABLES_H_
