// The files of the page in the program. CMake makes the table from the folder of the page.
#ifndef ATSC_WEB_HTTP_COMPILED_ASSETS_H_
#define ATSC_WEB_HTTP_COMPILED_ASSETS_H_

namespace web {

struct CompiledAsset {
  const char* path;
  const char* begin;
  const char* end;
};
extern const CompiledAsset kCompiledAssets[];
extern const int kCompiledAssetCount;

}  // namespace web

#endif  // ATSC_WEB_HTTP_COMPILED_ASSETS_H_
