// The PTZ worker.
//
// The command block is the posted command (code, record, sequence number)
// under m_lock, and the manual-reset wake event. A post stores the command,
// bumps the sequence number and sets the event. The worker remembers the
// sequence number of the command it took; before each wait (a hold or the
// wait for the next command) it resets the event and then looks whether a
// newer command was posted, and does not wait if so. A post that lands
// between the reset and the look is seen by the look; one that lands after
// the look sets the event the wait is about to block on. So no post is
// lost and every post cuts a hold short.
//
// Lock order: m_lock may be held while setting the event (the stopper does);
// the worker never waits on the event while holding m_lock.
#include "dravix/live/ptzcontrol.h"

#include "dravix/live/ptzini.h"

#include <chrono>

ZPTZControl::ZPTZControl() = default;

ZPTZControl::~ZPTZControl() { StopWorker(); }

int ZPTZControl::OpenDevice(int model, int comPort) {
  StopWorker();
  if (m_device == nullptr) m_device = std::make_unique<tagPTZDEVICE>();
  const int length = LoadPTZDevice(model, *m_device, &m_nResponseLength);
  m_device->wPort = static_cast<WORD>(comPort);
  m_wNoPresetDelay = m_device->wNoPresetDelay;
  if (length == 0) return 0;
  {
    std::lock_guard<std::mutex> l(m_lock);
    m_prevCode = 0;
    m_posted.code = 0;
    m_posted.device = nullptr;
    m_done = m_posted.seq;
  }
  m_stop = false;
  if (m_eventName.empty())
    m_eventName = "TH_PTZDev:" + std::to_string(std::chrono::steady_clock::now().time_since_epoch().count());
  m_finished = false;
  try {
    m_thread = std::thread(&ZPTZControl::WorkerLoop, this);
  } catch (...) {
    m_finished = true;
    return 0;
  }
  return 1;
}

int ZPTZControl::PostCommand(int code, const tagPTZDEVICE* device) {
  {
    std::lock_guard<std::mutex> l(m_lock);
    m_prevCode = m_posted.code;
    m_posted.code = code;
    m_posted.device = device != nullptr ? device : m_device.get();
    ++m_posted.seq;
  }
  m_wake.Set();
  return 1;
}

tagPTZDEVICE* ZPTZControl::NewDevice() {
  StopWorker();
  m_device = std::make_unique<tagPTZDEVICE>();
  return m_device.get();
}

void ZPTZControl::FreeDevice() {
  StopWorker();
  m_device.reset();
}

int ZPTZControl::WaitIdle(DWORD timeoutMs) {
  std::unique_lock<std::mutex> l(m_lock);
  const auto idle = [this] { return m_finished.load() || m_done == m_posted.seq; };
  if (timeoutMs == INFINITE) {
    m_changed.wait(l, idle);
    return 1;
  }
  return m_changed.wait_for(l, std::chrono::milliseconds(timeoutMs), idle) ? 1 : 0;
}

int ZPTZControl::GetCurrentCode() {
  std::lock_guard<std::mutex> l(m_lock);
  return m_posted.code;
}

int ZPTZControl::GetPreviousCode() {
  std::lock_guard<std::mutex> l(m_lock);
  return m_prevCode;
}

void ZPTZControl::StopWorker() {
  if (!m_thread.joinable()) return;
  m_stop = true;
  {
    std::unique_lock<std::mutex> l(m_lock);
    while (!m_finished.load()) {
      m_wake.Set();
      m_changed.wait_for(l, std::chrono::milliseconds(100), [this] { return m_finished.load(); });
    }
  }
  m_thread.join();
}

bool ZPTZControl::PostedSince(const Command& c) {
  std::lock_guard<std::mutex> l(m_lock);
  return m_posted.seq != c.seq;
}

void ZPTZControl::WorkerLoop() {
  while (!m_stop.load()) {
    Command c;
    {
      std::lock_guard<std::mutex> l(m_lock);
      c = m_posted;
    }
    Act(c);
    m_wake.Reset();
    {
      std::lock_guard<std::mutex> l(m_lock);
      if (m_stop.load()) break;
      if (m_posted.seq != c.seq) continue;  // posted while we were busy
      m_done = c.seq;
      m_changed.notify_all();
    }
    m_wake.Wait(INFINITE);
  }
  std::lock_guard<std::mutex> l(m_lock);
  m_finished = true;
  m_changed.notify_all();
}

void ZPTZControl::Hold(const Command& c) {
  m_wake.Reset();
  if (m_stop.load() || PostedSince(c)) return;
  m_wake.Wait(GetHoldTime());
}

void ZPTZControl::Send(const tagPTZDEVICE& device, const PTZCode& code) {
  if (code != nullptr) SendPTZCode(device, code.get(), device.nCodeLength);
}

void ZPTZControl::Act(const Command& c) {
  if (c.device == nullptr) return;
  const tagPTZDEVICE& d = *c.device;
  const int code = c.code;
  if (code >= 1 && code <= 10) {
    Send(d, d.start[code - 1]);
    Hold(c);
    Send(d, d.stop[code - 1]);
  } else if (code >= 1001 && code <= 1010) {
    Send(d, d.stop[code - 1001]);
    Hold(c);
  } else if (code >= 128 && code <= 255) {
    Send(d, d.setPreset[code - 128]);
    Hold(c);
  } else if (code >= 256 && code <= 383) {
    Send(d, d.presetPrefix);
    Send(d, d.findPreset[code - 256]);
    // With no preset delay the wake event still stands from the post that
    // brought this command, so the hold would end at once: skip it.
    if (m_wNoPresetDelay == 0) Hold(c);
  }
}
