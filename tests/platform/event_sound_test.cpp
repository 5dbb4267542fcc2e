#include "platform/linux/event_sound.h"

#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <future>
#include <memory>
#include <string>

#include "tests/support/run_program.h"
#include "tests/support/temporary_home.h"

namespace tervano::test {

namespace {

constexpr int kHeard = 0;
constexpr int kNotPlayed = 1;
constexpr int kNoEnd = 2;

// A sound theme with one sound, and a sound card that writes what is played to a file.
class EventSoundTest : public testing::Test {
 protected:
  EventSoundTest() {
    const std::string theme = home_.dataHome() + "/sounds/freedesktop";
    std::filesystem::create_directories(theme + "/stereo");
    std::ofstream(theme + "/index.theme") << "[Sound Theme]\nName=Default\nDirectories=stereo\n\n"
                                             "[stereo]\nOutputProfile=stereo\n";
    std::ofstream(theme + "/stereo/tried.wav", std::ios::binary) << header() << samples_;
    const std::string card = home_.path() + "/asound.conf";
    std::ofstream(card) << "pcm.!default {\n  type file\n  slave.pcm { type null }\n  file \""
                        << played() << "\"\n  format \"raw\"\n}\n";
    home_.setVariable("ALSA_CONFIG_PATH", card);
    home_.setVariable("CANBERRA_DRIVER", "alsa");
  }

  std::string played() const { return home_.path() + "/played.raw"; }

  // The library keeps its way of playing for a process, so this ends in a process of its own.
  [[noreturn]] static void play(const std::string& name) {
    // A second call would end the process.
    const auto ended = std::make_shared<std::promise<void>>();
    auto end = ended->get_future();
    if (!playEventSound(name, [ended] { ended->set_value(); })) std::_Exit(kNotPlayed);
    const auto state = end.wait_for(std::chrono::seconds(10));
    std::_Exit(state == std::future_status::ready ? kHeard : kNoEnd);
  }

  // Of a RIFF file with 44,100 frames a second of two channels of 16 bits.
  std::string header() const {
    const auto size = static_cast<char>(samples_.size());
    const std::string none(3, '\0');
    const std::string format("\x10\0\0\0\x01\0\x02\0\x44\xac\0\0\x10\xb1\x02\0\x04\0\x10\0", 20);
    return std::string("RIFF") + static_cast<char>(36 + samples_.size()) + none + "WAVEfmt " +
           format + "data" + size + none;
  }

  const std::string samples_ = "sixteen and more bytes of sound.";
  TemporaryHome home_;
};

}  // namespace

TEST_F(EventSoundTest, ASoundOfTheThemeIsPlayedWholeAndItsEndIsToldOnce) {
  EXPECT_EXIT(play("tried"), testing::ExitedWithCode(kHeard), "");
  EXPECT_EQ(contentsOf(played()), samples_);
}

TEST_F(EventSoundTest, WithoutAWayToPlayItNothingIsPlayedAndNoEndIsTold) {
  home_.setVariable("CANBERRA_DRIVER", "none-such");
  EXPECT_EXIT(play("tried"), testing::ExitedWithCode(kNotPlayed), "");
}

TEST_F(EventSoundTest, ASoundThatNoThemeHasIsNotPlayed) {
  EXPECT_EXIT(play("no-such-sound"), testing::ExitedWithCode(kNotPlayed), "");
  EXPECT_FALSE(exists(played()));
}

}  // namespace tervano::test
