#include "dravix/platform/serial_port.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/file.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <iterator>

namespace dravix::platform {
namespace {

struct Speed {
  DWORD rate;
  speed_t code;
};

constexpr Speed kSpeeds[] = {
    {50, B50},           {75, B75},           {110, B110},         {134, B134},         {150, B150},
    {200, B200},         {300, B300},         {600, B600},         {1200, B1200},       {1800, B1800},
    {2400, B2400},       {4800, B4800},       {9600, B9600},       {19200, B19200},     {38400, B38400},
    {57600, B57600},     {115200, B115200},   {230400, B230400},   {460800, B460800},   {500000, B500000},
    {576000, B576000},   {921600, B921600},   {1000000, B1000000}, {1152000, B1152000}, {1500000, B1500000},
    {2000000, B2000000}, {2500000, B2500000}, {3000000, B3000000}, {3500000, B3500000}, {4000000, B4000000},
};

bool SpeedCode(DWORD rate, speed_t* code) {
  const auto it =
      std::find_if(std::begin(kSpeeds), std::end(kSpeeds), [rate](const Speed& s) { return s.rate == rate; });
  if (it == std::end(kSpeeds)) return false;
  *code = it->code;
  return true;
}

DWORD SpeedRate(speed_t code) {
  const auto it =
      std::find_if(std::begin(kSpeeds), std::end(kSpeeds), [code](const Speed& s) { return s.code == code; });
  return it == std::end(kSpeeds) ? 0 : it->rate;
}

using Clock = std::chrono::steady_clock;

// Milliseconds left before `deadline`, at least 0.
int MsLeft(Clock::time_point deadline) {
  const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now()).count();
  return left > 0 ? static_cast<int>(std::min<long long>(left, 1 << 30)) : 0;
}

// Waits for `events` on fd; false on time-out or error. timeoutMs < 0: no limit.
bool WaitFd(int fd, short events, int timeoutMs) {
  pollfd p{fd, events, 0};
  for (;;) {
    const int r = poll(&p, 1, timeoutMs);
    if (r > 0) return true;
    if (r == 0 || errno != EINTR) return false;
  }
}

}  // namespace

std::string SerialDevicePath(const std::string& port) {
  if (port.size() < 4 || (port[0] | 0x20) != 'c' || (port[1] | 0x20) != 'o' || (port[2] | 0x20) != 'm') return "";
  const std::string digits = port.substr(3);
  if (digits.size() > 9 || digits.find_first_not_of("0123456789") != std::string::npos) return "";
  const long n = std::strtol(digits.c_str(), nullptr, 10);
  if (n < 1) return "";
  const std::string var = "DRAVIX_COM" + std::to_string(n);
  if (const char* mapped = std::getenv(var.c_str()); mapped != nullptr && *mapped != '\0') return mapped;
  return "/dev/ttyS" + std::to_string(n - 1);
}

std::unique_ptr<SerialPort> SerialPort::Open(const std::string& port, int* error) {
  const std::string path = SerialDevicePath(port);
  if (path.empty()) {
    if (error != nullptr) *error = ENOENT;
    return nullptr;
  }
  // Non-blocking so that a modem line without carrier does not hang the
  // open; the time-outs bound every transfer instead.
  const int fd = open(path.c_str(), O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
  if (fd < 0) {
    if (error != nullptr) *error = errno;
    return nullptr;
  }
  if (flock(fd, LOCK_EX | LOCK_NB) != 0) {
    if (error != nullptr) *error = errno == EWOULDBLOCK ? EBUSY : errno;
    close(fd);
    return nullptr;
  }
  return std::unique_ptr<SerialPort>(new SerialPort(fd));
}

SerialPort::~SerialPort() { Close(); }

bool SerialPort::GetState(SerialState* state, int* error) const {
  termios t{};
  if (fd_ < 0 || tcgetattr(fd_, &t) != 0) {
    if (error != nullptr) *error = fd_ < 0 ? EBADF : errno;
    return false;
  }
  state->baudRate = SpeedRate(cfgetospeed(&t));
  switch (t.c_cflag & CSIZE) {
    case CS5:
      state->byteSize = 5;
      break;
    case CS6:
      state->byteSize = 6;
      break;
    case CS7:
      state->byteSize = 7;
      break;
    default:
      state->byteSize = 8;
      break;
  }
  if (!(t.c_cflag & PARENB))
    state->parity = NOPARITY;
  else if (t.c_cflag & CMSPAR)
    state->parity = (t.c_cflag & PARODD) ? MARKPARITY : SPACEPARITY;
  else
    state->parity = (t.c_cflag & PARODD) ? ODDPARITY : EVENPARITY;
  state->stopBits = (t.c_cflag & CSTOPB) ? TWOSTOPBITS : ONESTOPBIT;
  return true;
}

bool SerialPort::SetState(const SerialState& state) {
  speed_t speed;
  if (fd_ < 0 || !SpeedCode(state.baudRate, &speed) || state.byteSize < 5 || state.byteSize > 8 ||
      state.parity > SPACEPARITY || state.stopBits > TWOSTOPBITS)
    return false;
  termios t{};
  if (tcgetattr(fd_, &t) != 0) return false;
  cfmakeraw(&t);
  t.c_iflag &= ~static_cast<tcflag_t>(IXON | IXOFF | IXANY);
  t.c_cflag &= ~static_cast<tcflag_t>(CSIZE | PARENB | PARODD | CMSPAR | CSTOPB | CRTSCTS);
  t.c_cflag |= CLOCAL | CREAD;
  static constexpr tcflag_t kSizes[] = {CS5, CS6, CS7, CS8};
  t.c_cflag |= kSizes[state.byteSize - 5];
  switch (state.parity) {
    case ODDPARITY:
      t.c_cflag |= PARENB | PARODD;
      break;
    case EVENPARITY:
      t.c_cflag |= PARENB;
      break;
    case MARKPARITY:
      t.c_cflag |= PARENB | CMSPAR | PARODD;
      break;
    case SPACEPARITY:
      t.c_cflag |= PARENB | CMSPAR;
      break;
    default:
      break;
  }
  if (state.stopBits != ONESTOPBIT) t.c_cflag |= CSTOPB;  // 1.5 has no termios form: two
  t.c_cc[VMIN] = 0;
  t.c_cc[VTIME] = 0;
  if (cfsetispeed(&t, speed) != 0 || cfsetospeed(&t, speed) != 0) return false;
  if (tcsetattr(fd_, TCSANOW, &t) == 0) return true;
  // A pseudo-terminal has no data size or parity of its own: it keeps eight
  // bits and no parity whatever is asked, and refuses (EINVAL) a request in
  // which nothing else would change. The line is set when all the rest took.
  termios now{};
  constexpr tcflag_t kFixedByPty = CSIZE | PARENB;
  return errno == EINVAL && tcgetattr(fd_, &now) == 0 && cfgetospeed(&now) == speed && cfgetispeed(&now) == speed &&
         (now.c_cflag & ~kFixedByPty) == (t.c_cflag & ~kFixedByPty) && now.c_iflag == t.c_iflag &&
         now.c_oflag == t.c_oflag && now.c_lflag == t.c_lflag && now.c_cc[VMIN] == t.c_cc[VMIN] &&
         now.c_cc[VTIME] == t.c_cc[VTIME];
}

bool SerialPort::SetTimeouts(const SerialTimeouts& timeouts) {
  if (fd_ < 0) return false;
  timeouts_ = timeouts;
  return true;
}

bool SerialPort::Write(const void* data, size_t size, size_t* written) {
  size_t done = 0;
  if (written != nullptr) *written = 0;
  if (fd_ < 0) return false;
  const bool limited = timeouts_.writeTotalConstant != 0 || timeouts_.writeTotalMultiplier != 0;
  const auto deadline = Clock::now() + std::chrono::milliseconds(uint64_t{timeouts_.writeTotalConstant} +
                                                                 uint64_t{timeouts_.writeTotalMultiplier} * size);
  const auto* bytes = static_cast<const unsigned char*>(data);
  while (done < size) {
    const ssize_t n = write(fd_, bytes + done, size - done);
    if (n > 0) {
      done += static_cast<size_t>(n);
      continue;
    }
    if (n < 0 && errno == EINTR) continue;
    if (n < 0 && errno != EAGAIN) break;
    const int wait = limited ? MsLeft(deadline) : -1;
    if (wait == 0 || !WaitFd(fd_, POLLOUT, wait)) break;
  }
  if (written != nullptr) *written = done;
  return done == size;
}

bool SerialPort::Close() {
  if (fd_ < 0) return false;
  const int fd = fd_;
  fd_ = -1;
  return close(fd) == 0;
}

}  // namespace dravix::platform
