// The log lines of the decoders, which have no log of their own.
#ifndef ATSC_HOST_RECEIVER_TUNERS_DECODER_LOG_H_
#define ATSC_HOST_RECEIVER_TUNERS_DECODER_LOG_H_

#include "receiver/tables/psi_decoder.h"

namespace atschost {

// Writes a message to the log; for PsiDecoder's constructor. Any thread.
void logDecoderMessage(PsiDecoder::Level level, const char* source, const char* text);

}  // namespace atschost

#endif  // ATSC_HOST_RECEIVER_TUNERS_DECODER_LOG_H_
