// Sends one command to the service process and prints the reply and the result.
#include <atsc/atsc_service.h>

#include <cstdio>
#include <cstdlib>

int main(int argc, char** argv) {
  if (argc != 2) {
    fprintf(stderr,
            "usage: minimal-send COMMAND, such as '{\"class\":\"FW\",\"command\":\"INIT\"}'\n");
    return 2;
  }
  char* reply = nullptr;
  const int result = ATSC_TransmitServiceClientJSONCommand(argv[1], &reply);
  printf("%s= %d\n", reply != nullptr ? reply : "", result);
  free(reply);
  return result == 0 ? 0 : 1;
}
