// Compares a command through both processes with a bare Unix-socket ping-pong between two
// processes. The calling and the answering process have a core each, if there are two: otherwise
// the scheduler decides in each repetition anew whether they share one, which halves the time.
#include <atsc/atsc_service.h>
#include <atsc_host.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "process.h"
#include "report.h"
#include "temporary_folder.h"
#include "wait.h"

namespace {

// The first command is answered with the result only; for the second, the service calls the
// middleware and answers with a text.
constexpr const char* kAct = R"({"class":"MSC","command":"LOGCTL","para":"RESUME"})";
constexpr const char* kAsk = R"({"class":"TIME","command":"GETCUR"})";

// Sizes on the wire: a frame header; tag, size and NUL of each text; tag and value of the result.
constexpr size_t kHeaderBytes = 16;
constexpr size_t kTextBytes = 5 + 1;
constexpr size_t kResultBytes = 5;

// Sends a command and returns the size of the reply text. Ends the program when there is no answer.
size_t send(const char* command) {
  char* text = nullptr;
  if (ATSC_TransmitServiceClientJSONCommand(command, &text) != 0 ||
      ATSC_host_last_transact() != 0) {
    abort();
  }
  const size_t size = text != nullptr ? strlen(text) : 0;
  free(text);
  return size;
}

bool readAll(int fd, std::vector<char>& buffer) {
  for (size_t done = 0; done < buffer.size();) {
    const ssize_t got = read(fd, buffer.data() + done, buffer.size() - done);
    if (got <= 0) return false;
    done += static_cast<size_t>(got);
  }
  return true;
}

// A child process that answers requests of a fixed size.
class PingPong {
 public:
  PingPong(size_t requestBytes, size_t replyBytes) : request_(requestBytes), reply_(replyBytes) {
    int ends[2];
    if (socketpair(AF_UNIX, SOCK_STREAM, 0, ends) != 0) abort();
    child_ = fork();
    if (child_ == 0) {
      close(ends[0]);
      while (readAll(ends[1], request_) &&
             write(ends[1], reply_.data(), reply_.size()) == static_cast<ssize_t>(reply_.size())) {
      }
      _exit(0);
    }
    close(ends[1]);
    socket_ = ends[0];
  }

  ~PingPong() {
    close(socket_);
    waitpid(child_, nullptr, 0);
  }

  void exchange() {
    if (write(socket_, request_.data(), request_.size()) != static_cast<ssize_t>(request_.size()) ||
        !readAll(socket_, reply_)) {
      abort();
    }
  }

 private:
  std::vector<char> request_;
  std::vector<char> reply_;
  int socket_ = -1;
  pid_t child_ = -1;
};

}  // namespace

int main(int argc, char** argv) {
  const TemporaryFolder temporary;
  const std::string folder = temporary.path();
  bench::stayOnCore(false);
  // The real service process on an empty air folder.
  Process service({ATSC_SERVICE, "--air", folder, "--db", folder + "/db"},
                  {{"ATSC_HOST_STATE", folder + "/state"}});
  if (!eventually([&] { return ATSC_host_find(ATSC_HOST_SERVICE_NAME) == service.pid(); },
                  std::chrono::seconds(10))) {
    fprintf(stderr, "bench_command: the service does not start\n%s", service.err().c_str());
    return 1;
  }
  PingPong act(kHeaderBytes + kTextBytes + strlen(kAct), kHeaderBytes + kResultBytes);
  PingPong ask(kHeaderBytes + kTextBytes + strlen(kAsk),
               kHeaderBytes + kTextBytes + send(kAsk) + kResultBytes);
  bench::stayOnCore(true);
  bench::add(
      "command round trip", [] { send(kAct); }, [&act] { act.exchange(); }, 20000);
  bench::add(
      "command with a reply", [] { send(kAsk); }, [&ask] { ask.exchange(); }, 20000);
  const int status = bench::run(argc, argv);
  service.signal(SIGTERM);
  service.wait();
  return status;
}
