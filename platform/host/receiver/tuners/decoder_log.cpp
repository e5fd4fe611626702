#include "receiver/tuners/decoder_log.h"

#include "process/log.h"

namespace atschost {

void logDecoderMessage(PsiDecoder::Level level, const char* source, const char* text) {
  if (level == PsiDecoder::Level::kError) {
    log().Error("%s: %s", source, text);
  } else {
    log().Debug("%s: %s", source, text);
  }
}

}  // namespace atschost
