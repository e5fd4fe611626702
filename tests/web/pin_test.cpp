// The PIN: guesses, restarts, and a file that is not as it was left.
#include "television/pin.h"

#include <gmock/gmock.h>
#include <sys/stat.h>

#include <chrono>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include "files.h"
#include "temporary_folder.h"
#include "wait.h"

namespace {

namespace fs = std::filesystem;
using Answer = web::Pin::Answer;
using State = web::Pin::State;

class PinTest : public testing::Test {
 protected:
  const TemporaryFolder temporary_;
  const fs::path file_ = temporary_.path() / "state" / "atsc-web.pin";
};

TEST_F(PinTest, WrongGuessesWaitLongerEachTimeAlsoAfterARestart) {
  {
    web::Pin pin(file_, std::chrono::seconds(1));
    EXPECT_EQ(State::kNone, pin.status().state);
    EXPECT_EQ(Answer::kNone, pin.check("1234"));
    for (const char* bad : {"", "123", "123456789", "12a4", " 1234", "１２３４"}) {
      EXPECT_EQ(Answer::kForm, pin.set(bad, "")) << bad;
    }
    EXPECT_EQ(Answer::kRight, pin.set("1234", ""));
    EXPECT_EQ(Answer::kWrong, pin.set("4321", "")) << "the old PIN is needed";
    EXPECT_EQ(Answer::kWrong, pin.check("1235"));
    EXPECT_EQ(0, pin.status().wait);
    EXPECT_EQ(Answer::kRight, pin.check("1234"));
    for (int i = 0; i < 3; ++i) EXPECT_EQ(Answer::kWrong, pin.check("1235"));
    EXPECT_EQ(Answer::kWait, pin.check("1234")) << "the right one is not looked at either";
  }
  web::Pin pin(file_, std::chrono::seconds(1));
  EXPECT_EQ(Answer::kWait, pin.check("1234"));
  EXPECT_EQ(Answer::kWait, pin.set("4321", "1234"));
  EXPECT_TRUE(eventually([&] { return pin.status().wait == 0; }));
  EXPECT_EQ(Answer::kWrong, pin.check("1235"));
  EXPECT_GT(pin.status().wait, 1) << "twice as long";
  EXPECT_TRUE(eventually([&] { return pin.status().wait == 0; }));
  EXPECT_EQ(Answer::kRight, pin.set("4321", "1234"));
  EXPECT_EQ(Answer::kWrong, pin.check("1234"));
  EXPECT_EQ(Answer::kRight, pin.check("4321"));
  const std::string kept = readFile(file_);
  EXPECT_THAT(kept, testing::HasSubstr("$y$"));
  EXPECT_THAT(kept, testing::Not(testing::HasSubstr("4321")));
  struct stat status;
  ASSERT_EQ(0, stat(file_.c_str(), &status));
  EXPECT_EQ(0600u, status.st_mode & 0777u);
}

TEST_F(PinTest, GrantsEndWithThePinAndWithTheirFile) {
  web::Pin pin(file_);
  ASSERT_EQ(Answer::kRight, pin.set("1234", ""));
  const std::string first = pin.grant();
  EXPECT_TRUE(pin.isGranted(first));
  for (const std::string& other : {std::string(), first + "0", std::string(32, '0')}) {
    EXPECT_FALSE(pin.isGranted(other));
  }
  pin.endGrant(first);
  EXPECT_FALSE(pin.isGranted(first));
  const std::string second = pin.grant();
  ASSERT_EQ(Answer::kRight, pin.set("4321", "1234"));
  EXPECT_FALSE(pin.isGranted(second));
  // Many grants are forgotten, the oldest first.
  const std::string oldest = pin.grant();
  for (int i = 0; i < 100; ++i) pin.grant();
  EXPECT_FALSE(pin.isGranted(oldest));
  const std::string last = pin.grant();
  writeFile(file_, "{}");
  EXPECT_FALSE(pin.isGranted(last));
}

// What cannot be read counts as a PIN that nobody knows, never as none.
TEST_F(PinTest, ADamagedFileUnlocksNothingUntilItIsRemoved) {
  const auto make = [&] {
    fs::remove_all(file_);
    web::Pin pin(file_);
    EXPECT_EQ(Answer::kRight, pin.set("1234", ""));
    return readFile(file_);
  };
  const std::string good = make();
  const auto replaced = [&](const std::string& from, const std::string& to) {
    std::string text = good;
    return text.replace(text.find(from), from.size(), to);
  };
  const std::vector<std::string> damaged = {
      "",
      "{}",
      "[]",
      good.substr(0, good.size() / 2),
      replaced("$y$", "$1$"),
      replaced("\"$y$", "\"plain$y$"),
      replaced("\"wrong\":0", "\"wrong\":-5"),
      replaced("\"wrong\":0", "\"wrong\":\"0\""),
      replaced("\"until\":0", "\"until\":1e300"),
      std::string(100000, 'x'),
  };
  const auto isBroken = [&](const std::string& what) {
    SCOPED_TRACE(what.substr(0, 100));
    web::Pin pin(file_);
    EXPECT_EQ(State::kBroken, pin.status().state);
    testing::internal::CaptureStderr();
    EXPECT_EQ(Answer::kBroken, pin.check("1234"));
    EXPECT_EQ(Answer::kBroken, pin.set("5678", "1234"));
    EXPECT_FALSE(pin.isGranted(pin.grant()));
    EXPECT_EQ("", testing::internal::GetCapturedStderr()) << "it is logged once";
    fs::remove_all(file_);
    EXPECT_EQ(State::kNone, pin.status().state);
    EXPECT_EQ(Answer::kRight, pin.set("5678", ""));
    EXPECT_EQ(Answer::kRight, pin.check("5678"));
  };
  for (const std::string& text : damaged) {
    writeFile(file_, text);
    isBroken(text);
  }
  make();
  fs::permissions(file_, fs::perms::group_read, fs::perm_options::add);
  isBroken("others may read it");
  make();
  fs::rename(file_, temporary_.path() / "elsewhere");
  fs::create_symlink(temporary_.path() / "elsewhere", file_);
  isBroken("a link");
  fs::remove(file_);
  fs::create_directory(file_);
  isBroken("a folder");
  // A file that cannot be written checks nothing: the guess would not count.
  make();
  web::Pin pin(file_);
  const fs::path fresh = file_.string() + ".new";
  fs::create_directories(fresh / "in the way");
  EXPECT_EQ(Answer::kFailed, pin.check("1234"));
  EXPECT_EQ(Answer::kFailed, pin.set("5678", "1234"));
  fs::remove_all(fresh);
  EXPECT_EQ(Answer::kRight, pin.check("1234"));
  // The end of a wait is far away, as after the clock was set back, or makes no sense.
  for (const auto& [until, wait] : {std::pair("9000000000000", 5), {"-9223372036854775808", 0}}) {
    writeFile(file_, replaced("\"until\":0,\"wrong\":0",
                              "\"until\":" + std::string(until) + ",\"wrong\":3"));
    fs::permissions(file_, fs::perms::owner_read | fs::perms::owner_write);
    EXPECT_LE(pin.status().wait, wait);
  }
}

}  // namespace
