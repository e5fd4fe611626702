#include "http/assets.h"

#include <cstdint>
#include <cstdio>
#include <map>

#include "http/compiled_assets.h"

namespace web {

namespace {

std::string typeOf(std::string_view path) {
  static const std::map<std::string_view, std::string> kTypes = {
      {"html", "text/html; charset=utf-8"},
      {"css", "text/css; charset=utf-8"},
      {"js", "text/javascript; charset=utf-8"},
      {"json", "application/json"},
      {"svg", "image/svg+xml"},
      {"png", "image/png"},
      {"ico", "image/x-icon"},
      {"woff2", "font/woff2"},
      {"webmanifest", "application/manifest+json"}};
  const auto type = kTypes.find(path.substr(path.rfind('.') + 1));
  return type != kTypes.end() ? type->second : "application/octet-stream";
}

std::string tagOf(std::string_view content) {
  uint64_t hash = 0xcbf29ce484222325;  // FNV-1a
  for (const char byte : content) {
    hash = (hash ^ static_cast<unsigned char>(byte)) * 0x100000001b3;
  }
  char text[24];
  snprintf(text, sizeof text, "\"%016llx\"", static_cast<unsigned long long>(hash));
  return text;
}

std::map<std::string, Asset> readAssets() {
  std::map<std::string, Asset> assets;
  for (int index = 0; index < kCompiledAssetCount; ++index) {
    const CompiledAsset& file = kCompiledAssets[index];
    const std::string_view content(file.begin, static_cast<size_t>(file.end - file.begin));
    assets[file.path] = {content, typeOf(file.path), tagOf(content)};
  }
  return assets;
}

}  // namespace

const Asset* findAsset(const std::string& path) {
  static const std::map<std::string, Asset> assets = readAssets();
  const auto found = assets.find(path);
  return found != assets.end() ? &found->second : nullptr;
}

}  // namespace web
