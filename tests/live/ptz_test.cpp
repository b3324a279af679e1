#include "dravix/live/ptzcontrol.h"
#include "dravix/live/ptzdevice.h"
#include "dravix/live/ptzini.h"
#include "dravix/platform/serial_port.h"
#include "tests/support/test_home.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <poll.h>
#include <termios.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <string>
#include <thread>
#include <tuple>
#include <vector>

// Every termios setting the library asks for passes through here on its way
// to the driver, so the tests see it even where a pseudo-terminal would not
// keep it (the pty driver forces eight data bits and no parity).
namespace {
termios g_lastSet{};
}  // namespace

extern "C" int tcsetattr(int fd, int action, const termios* t) {
  using Real = int (*)(int, int, const termios*);
  static const Real real = reinterpret_cast<Real>(dlsym(RTLD_NEXT, "tcsetattr"));
  g_lastSet = *t;
  return real(fd, action, t);
}

namespace {

using Bytes = std::vector<BYTE>;
using Clock = std::chrono::steady_clock;

int Ms(Clock::duration d) { return static_cast<int>(std::chrono::duration_cast<std::chrono::milliseconds>(d).count()); }

Bytes Hex(const char* text, int n) {
  Bytes out(static_cast<size_t>(n));
  EXPECT_EQ(PTZHexToBytes(text, out.data(), n), 1);
  return out;
}

// QUIRK(hex-nibble-carry)
TEST(PtzHex, TwoDigitsPerByteAndNonDigitsKeepTheNibble) {
  EXPECT_EQ(Hex("0aF1b2", 3), (Bytes{0x0A, 0xF1, 0xB2}));
  EXPECT_EQ(Hex("1G", 1), (Bytes{0x11}));                 // low nibble starts at n = 1
  EXPECT_EQ(Hex("1G", 3)[0], 0x13);                       // ... at n = 3
  EXPECT_EQ(Hex("G5", 2)[0], 0x25);                       // high nibble starts at n too
  EXPECT_EQ(Hex("12x4y", 3), (Bytes{0x12, 0x14, 0x14}));  // each nibble keeps its own last value
  EXPECT_EQ(Hex("AB", 3), (Bytes{0xAB, 0xAB, 0xAB}));     // a short text ends in kept nibbles
  EXPECT_EQ(Hex("", 2), (Bytes{0x22, 0x22}));
  EXPECT_EQ(Hex("0102030405", 2), (Bytes{0x01, 0x02}));  // no more than 2n characters read
  EXPECT_EQ(Hex("", 20)[0], 20 * 16 + 20 - 256);

  char inPlace[] = "C0ffEE";
  EXPECT_EQ(PTZHexToBytes(inPlace, reinterpret_cast<BYTE*>(inPlace), 3), 1);
  EXPECT_EQ(Bytes(inPlace, inPlace + 3), (Bytes{0xC0, 0xFF, 0xEE}));

  BYTE out[2] = {7, 7};
  EXPECT_EQ(PTZHexToBytes(nullptr, out, 2), 0);
  EXPECT_EQ(PTZHexToBytes("00", nullptr, 2), 0);
  EXPECT_EQ(PTZHexToBytes("00", out, 0), 0);
  EXPECT_EQ(out[0], 7);
}

const Bytes kPanLeft{0xA1, 0x0A, 0x0D, 0x05};
const Bytes kPanLeftStop{0xA1, 0x0A, 0x0D, 0x00};

// Model 1 has a line feed and a carriage return in its codes: a line that is
// not raw would change them on the way.
constexpr const char* kIni =
    "[COMMON]\r\nNUMBERS=3\r\n"
    "[PTZ1]\r\nname=Dome D-100\r\nCodeLength=4\r\n"
    "PanLeft=A10A0D05\r\nPanLeft_=A10A0D00\r\nZoomIn=B1000001\r\nZoomIn_=b1000000\r\n"
    "Preset_=C0C0C0C0\r\nSetPreset72=D1004800\r\nFindPreset44=E1002C00\r\nFindPreset0=E1000000\r\n"
    "baudRate=19200\r\nparity=1\r\nbits=7\r\nstop=2\r\nresponse=1\r\nresponselength=6\r\n"
    "[PTZ2]\r\nname=Raw Box\r\ncodelength=3\r\nByByte=0\r\nnoPresetDelayTime=0\r\nstop=15\r\n"
    "ZoomIn=abcdef\r\nZoomIn_=z\r\nPreset_=pp\r\nFindPreset1=f1\r\n"
    "[PTZ4]\r\nname=Not counted\r\nCodeLength=2\r\n";

class Ptz : public dravix::test::TestHome {
 protected:
  void SetUp() override {
    TestHome::SetUp();
    old_ = std::filesystem::current_path();
    std::filesystem::current_path(home());
    master_ = posix_openpt(O_RDWR | O_NOCTTY);
    ASSERT_GE(master_, 0);
    ASSERT_EQ(grantpt(master_), 0);
    ASSERT_EQ(unlockpt(master_), 0);
    slavePath_ = ptsname(master_);
    slave_ = open(slavePath_.c_str(), O_RDWR | O_NOCTTY);  // kept open: no hang-up between codes
    ASSERT_GE(slave_, 0);
    setenv("DRAVIX_COM3", slavePath_.c_str(), 1);
    WriteFile("PTZ.ini", kIni);
  }
  void TearDown() override {
    unsetenv("DRAVIX_COM3");
    if (slave_ >= 0) close(slave_);
    if (master_ >= 0) close(master_);
    std::filesystem::current_path(old_);
    TestHome::TearDown();
  }

  // The next `n` bytes sent through the pty ("" after `timeoutMs`).
  Bytes Receive(size_t n, int timeoutMs = 3000) {
    const auto deadline = Clock::now() + std::chrono::milliseconds(timeoutMs);
    Bytes got;
    while (got.size() < n) {
      const int left = Ms(deadline - Clock::now());
      pollfd p{master_, POLLIN, 0};
      if (left <= 0 || poll(&p, 1, left) <= 0) break;
      BYTE buf[64];
      const ssize_t r = read(master_, buf, std::min(sizeof buf, n - got.size()));
      if (r <= 0) break;
      got.insert(got.end(), buf, buf + r);
    }
    return got;
  }
  bool Quiet(int ms) { return Receive(1, ms).empty(); }

  termios SlaveTermios() {
    termios t{};
    EXPECT_EQ(tcgetattr(slave_, &t), 0);
    return t;
  }

  std::filesystem::path old_;
  int master_ = -1;
  int slave_ = -1;
  std::string slavePath_;
};

TEST_F(Ptz, ModelsComeFromPtzIniInTheCurrentDirectory) {
  using Seen = std::vector<std::pair<int, std::string>>;
  Seen seen;
  const auto collect = [&seen](int n, const char* name) { seen.emplace_back(n, name); };
  EXPECT_EQ(GetPTZModelCount(), 3);
  EXPECT_EQ(EnumPTZModels(collect), 1);
  EXPECT_EQ(seen, (Seen{{1, "Dome D-100"}, {2, "Raw Box"}, {3, ""}}));
  EXPECT_EQ(EnumPTZModels({}), 0);

  char name[128];
  EXPECT_EQ(GetPTZModelName(2, name), 7);
  EXPECT_STREQ(name, "Raw Box");
  GetPTZModelName(4, name);  // beyond NUMBERS but present
  EXPECT_STREQ(name, "Not counted");
  WriteFile("PTZ.ini", "[PTZ1]\nname=" + std::string(300, 'n') + "\n");
  EXPECT_EQ(GetPTZModelName(1, name), 127);

  // A count is not trusted beyond the file's size.
  WriteFile("PTZ.ini", "[COMMON]\nNUMBERS=2000000000\n");
  seen.clear();
  EXPECT_EQ(EnumPTZModels(collect), 1);
  EXPECT_LE(seen.size(), 32u);

  // The program folder is not where the file is looked for.
  std::filesystem::current_path(old_);
  EXPECT_EQ(GetPTZModelCount(), 0);
}

TEST_F(Ptz, DeviceRecordTakesSettingsAndCodesFromTheModel) {
  tagPTZDEVICE d;
  EXPECT_EQ(d.wPort, 1);
  int responseLength = 0;
  ASSERT_EQ(LoadPTZDevice(1, d, &responseLength), 4);
  EXPECT_EQ(d.wBaudRate, 19200);
  EXPECT_EQ(d.byParity, 1);
  EXPECT_EQ(d.byBits, 7);
  EXPECT_EQ(d.byStop, 2);
  EXPECT_EQ(d.wNoPresetDelay, 1);
  EXPECT_EQ(d.nResponse, 1);
  EXPECT_EQ(responseLength, 6);
  EXPECT_EQ(Bytes(d.start[4].get(), d.start[4].get() + 4), (Bytes{0xA1, 0x0A, 0x0D, 0x05}));
  EXPECT_EQ(Bytes(d.stop[0].get(), d.stop[0].get() + 4), (Bytes{0xB1, 0x00, 0x00, 0x00}));
  EXPECT_EQ(Bytes(d.setPreset[72].get(), d.setPreset[72].get() + 4), (Bytes{0xD1, 0x00, 0x48, 0x00}));
  EXPECT_NE(d.findPreset[0], nullptr);
  EXPECT_EQ(d.start[1], nullptr);  // "ZoomOut" absent
  EXPECT_EQ(d.setPreset[0], nullptr);

  // Reloading frees what the other model had; "codelength" is "CodeLength";
  // with ByByte 0 the text itself is the code.
  ASSERT_EQ(LoadPTZDevice(2, d), 3);
  EXPECT_EQ(d.start[4], nullptr);
  EXPECT_EQ(Bytes(d.start[0].get(), d.start[0].get() + 3), (Bytes{'a', 'b', 'c'}));
  EXPECT_EQ(Bytes(d.stop[0].get(), d.stop[0].get() + 3), (Bytes{'z', 0, 0}));
  EXPECT_EQ(d.wBaudRate, 9600);  // defaults where the model says nothing
  EXPECT_EQ(d.byParity, 0);
  EXPECT_EQ(d.byBits, 8);
  EXPECT_EQ(d.byStop, 15);
  EXPECT_EQ(d.wNoPresetDelay, 0);

  EXPECT_EQ(LoadPTZDevice(7, d), 0);  // no such section
  EXPECT_EQ(d.start[0], nullptr);
  WriteFile("PTZ.ini", "[PTZ1]\nCodeLength=500000\nZoomIn=00\n[PTZ2]\nCodeLength=-3\nZoomIn=00\n");
  EXPECT_EQ(LoadPTZDevice(1, d), 0);  // more bytes per code than the file holds
  EXPECT_EQ(LoadPTZDevice(2, d), 0);
}

// What was asked of the driver, and what the pty kept of it (it forces eight
// data bits and no parity enable itself).
TEST_F(Ptz, SendingACodeSetsUpTheLineAndWritesTheBytes) {
  tagPTZDEVICE d;
  ASSERT_EQ(LoadPTZDevice(1, d), 4);
  d.wPort = 3;
  struct Case {
    BYTE stop, parity, bits;
    WORD baud;
    bool twoStops;
    tcflag_t parityBits, size;
    speed_t speed;
  };
  const Case cases[] = {
      {2, 1, 7, 19200, true, PARENB | PARODD, CS7, B19200},  // model 1 as loaded
      {1, 0, 8, 9600, false, 0, CS8, B9600},
      {3, 2, 6, 4800, false, PARENB, CS6, B4800},                      // any other stop code is one
      {15, 3, 5, 38400, true, PARENB | CMSPAR | PARODD, CS5, B38400},  // 1.5 -> two
      {2, 4, 8, 57600, true, PARENB | CMSPAR, CS8, B57600},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(testing::Message() << "stop " << int{c.stop} << " parity " << int{c.parity} << " bits " << int{c.bits}
                                    << " baud " << c.baud);
    d.byStop = c.stop;
    d.byParity = c.parity;
    d.byBits = c.bits;
    d.wBaudRate = c.baud;
    g_lastSet = termios{};
    ASSERT_EQ(SendPTZCode(d, d.start[4].get(), d.nCodeLength), 1);
    EXPECT_EQ(Receive(4), kPanLeft);
    EXPECT_EQ(cfgetospeed(&g_lastSet), c.speed);
    EXPECT_EQ((g_lastSet.c_cflag & CSTOPB) != 0, c.twoStops);
    EXPECT_EQ(g_lastSet.c_cflag & (PARENB | PARODD | CMSPAR), c.parityBits);
    EXPECT_EQ(g_lastSet.c_cflag & CSIZE, c.size);
    EXPECT_EQ(g_lastSet.c_oflag & OPOST, 0u);
    EXPECT_EQ(g_lastSet.c_lflag & (ICANON | ECHO), 0u);
    const termios t = SlaveTermios();
    EXPECT_EQ(cfgetospeed(&t), c.speed);
    EXPECT_EQ((t.c_cflag & CSTOPB) != 0, c.twoStops);
    EXPECT_EQ(t.c_cflag & (PARODD | CMSPAR), c.parityBits & (PARODD | CMSPAR));
  }
}

TEST_F(Ptz, SendFailsCleanlyWithoutAUsablePort) {
  tagPTZDEVICE d;
  ASSERT_EQ(LoadPTZDevice(1, d), 4);
  const BYTE* code = d.start[4].get();

  d.wPort = 9;
  setenv("DRAVIX_COM9", Path("no-such-port").c_str(), 1);
  EXPECT_EQ(SendPTZCode(d, code, 4), 0);

  WriteFile("plain-file", "");
  setenv("DRAVIX_COM9", Path("plain-file").c_str(), 1);
  testing::internal::CaptureStdout();
  EXPECT_EQ(SendPTZCode(d, code, 4), 0);
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "GetCommState failed with error 25.\n");  // ENOTTY
  EXPECT_EQ(ReadFile(Path("plain-file")), "");
  unsetenv("DRAVIX_COM9");

  d.wPort = 3;
  for (const auto& [baud, bits, parity] : {std::tuple{12345, 8, 0}, {9600, 9, 0}, {9600, 8, 5}}) {
    d.wBaudRate = static_cast<WORD>(baud);
    d.byBits = static_cast<BYTE>(bits);
    d.byParity = static_cast<BYTE>(parity);
    EXPECT_EQ(SendPTZCode(d, code, 4), 0) << baud << " " << bits << " " << parity;
  }
  d.byParity = 0;
  {
    int error = 0;
    auto busy = dravix::platform::SerialPort::Open("COM3", &error);
    ASSERT_NE(busy, nullptr) << error;
    EXPECT_EQ(SendPTZCode(d, code, 4), 0);  // opened exclusively
    EXPECT_EQ(dravix::platform::SerialPort::Open("com3", &error), nullptr);
    EXPECT_EQ(error, EBUSY);
  }
  EXPECT_TRUE(Quiet(100));
  EXPECT_EQ(SendPTZCode(d, code, 4), 1);
  EXPECT_EQ(Receive(4).size(), 4u);
}

TEST_F(Ptz, PortNamesMapToDevices) {
  using dravix::platform::SerialDevicePath;
  EXPECT_EQ(SerialDevicePath("COM3"), slavePath_);
  EXPECT_EQ(SerialDevicePath("COM1"), "/dev/ttyS0");
  EXPECT_EQ(SerialDevicePath("com12"), "/dev/ttyS11");
  EXPECT_EQ(SerialDevicePath("COM0"), "");
  EXPECT_EQ(SerialDevicePath("COM"), "");
  EXPECT_EQ(SerialDevicePath("COM1x"), "");
  EXPECT_EQ(SerialDevicePath("LPT1"), "");
}

TEST_F(Ptz, MovementHoldsThenSendsTheStopCodeAndANewPostCutsTheHoldShort) {
  ZPTZControl ptz;
  ptz.SetHoldTime(500);
  ASSERT_EQ(ptz.OpenDevice(1, 3), 1);
  EXPECT_EQ(ptz.IsRunning(), 1);
  EXPECT_EQ(ptz.GetEventName().rfind("TH_PTZDev:", 0), 0u);
  EXPECT_EQ(ptz.PostCommand(5), 1);
  EXPECT_EQ(Receive(4), kPanLeft);
  auto started = Clock::now();
  EXPECT_EQ(Receive(4, 3000), kPanLeftStop);
  const int held = Ms(Clock::now() - started);
  EXPECT_GE(held, 400);
  EXPECT_LE(held, 1500);
  EXPECT_EQ(ptz.WaitIdle(2000), 1);
  EXPECT_TRUE(Quiet(100));

  started = Clock::now();
  ptz.PostCommand(5);
  EXPECT_EQ(Receive(4), kPanLeft);
  ptz.PostCommand(1005);
  EXPECT_EQ(ptz.GetPreviousCode(), 5);
  EXPECT_EQ(ptz.GetCurrentCode(), 1005);
  EXPECT_EQ(Receive(4), kPanLeftStop);  // the hold of 5 ends early ...
  EXPECT_EQ(Receive(4), kPanLeftStop);  // ... and 1005 sends the stop code again
  EXPECT_LT(Ms(Clock::now() - started), 400);
  EXPECT_EQ(ptz.WaitIdle(3000), 1);
  EXPECT_TRUE(Quiet(100));
}

TEST_F(Ptz, PresetsAndCodesWithoutAction) {
  ZPTZControl ptz;
  ptz.SetHoldTime(2000);
  ASSERT_EQ(ptz.OpenDevice(1, 3), 1);
  ptz.PostCommand(200);
  EXPECT_EQ(Receive(4), (Bytes{0xD1, 0x00, 0x48, 0x00}));  // set-preset 72
  EXPECT_EQ(ptz.WaitIdle(300), 0);                         // held

  // Go-to-preset: the prefix, then the preset, and no hold.
  const auto posted = Clock::now();
  ptz.PostCommand(300);
  EXPECT_EQ(Receive(8), (Bytes{0xC0, 0xC0, 0xC0, 0xC0, 0xE1, 0x00, 0x2C, 0x00}));
  EXPECT_EQ(ptz.WaitIdle(1500), 1);
  EXPECT_LT(Ms(Clock::now() - posted), 1500);

  for (int code : {0, 11, 127, 384, 1000, 1011, -5, 2}) {  // 2 (ZoomOut) has no code in this model
    ptz.PostCommand(code);
    EXPECT_EQ(ptz.WaitIdle(3000), 1) << code;
  }
  EXPECT_TRUE(Quiet(100));
}

TEST_F(Ptz, GoToPresetIsHeldWhenTheModelAsksForADelay) {
  ZPTZControl ptz;
  ptz.SetHoldTime(1500);
  ASSERT_EQ(ptz.OpenDevice(2, 3), 1);
  ptz.PostCommand(257);
  EXPECT_EQ(Receive(6), (Bytes{'p', 'p', 0, 'f', '1', 0}));
  EXPECT_EQ(ptz.WaitIdle(300), 0);
  ptz.PostCommand(1001);  // cuts it short
  EXPECT_EQ(Receive(3), (Bytes{'z', 0, 0}));
}

TEST_F(Ptz, OpeningAgainRestartsTheWorkerOnTheNewModel) {
  ZPTZControl ptz;
  ptz.SetHoldTime(5000);
  EXPECT_EQ(ptz.OpenDevice(7, 3), 0);  // no such model: no worker
  EXPECT_EQ(ptz.IsRunning(), 0);
  ASSERT_EQ(ptz.OpenDevice(1, 3), 1);
  const std::string eventName = ptz.GetEventName();
  ptz.PostCommand(1);
  EXPECT_EQ(Receive(4), (Bytes{0xB1, 0x00, 0x00, 0x01}));
  const auto reopening = Clock::now();
  ASSERT_EQ(ptz.OpenDevice(2, 3), 1);  // stops the held command: its stop code still goes out
  EXPECT_EQ(Receive(4), (Bytes{0xB1, 0x00, 0x00, 0x00}));
  EXPECT_LT(Ms(Clock::now() - reopening), 2500);
  EXPECT_EQ(ptz.GetEventName(), eventName);
  EXPECT_EQ(ptz.GetCurrentCode(), 0);
  EXPECT_EQ(ptz.IsRunning(), 1);
  EXPECT_TRUE(Quiet(100));  // the old command is not taken up again

  ptz.PostCommand(1);
  EXPECT_EQ(Receive(3), (Bytes{'a', 'b', 'c'}));
  const auto freeing = Clock::now();
  ptz.FreeDevice();
  EXPECT_EQ(Receive(3), (Bytes{'z', 0, 0}));
  EXPECT_LT(Ms(Clock::now() - freeing), 2500);
  EXPECT_EQ(ptz.IsRunning(), 0);
  EXPECT_EQ(ptz.GetDevice(), nullptr);
}

}  // namespace
