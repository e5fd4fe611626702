// The files of the page, which are part of the program.
#ifndef ATSC_WEB_HTTP_ASSETS_H_
#define ATSC_WEB_HTTP_ASSETS_H_

#include <string>
#include <string_view>

namespace web {

struct Asset {
  std::string_view content;
  std::string type;  // for the header Content-Type
  std::string tag;   // for the header ETag, changes with the content
};

// Returns a file by its path in the page, such as "js/app.js", or nullptr.
const Asset* findAsset(const std::string& path);

}  // namespace web

#endif  // ATSC_WEB_HTTP_ASSETS_H_
