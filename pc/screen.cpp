#include "pc/screen.h"

#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <iostream>

#include "platform/virtual/core/machine.h"

using namespace virtual_pc;

namespace {

constexpr const char* kErase = "\r\033[K";

bool WriteAll(int file, const std::string& text)
{
    for (std::size_t done = 0; done < text.size();) {
        const ssize_t written = write(file, text.data() + done, text.size() - done);
        if (written < 0 && errno != EINTR) return false;
        if (written > 0) done += static_cast<std::size_t>(written);
    }
    return true;
}

// "34 days a second", "600 times as fast".
std::string SpeedWords(double times)
{
    constexpr double kDay = 24 * 3600;
    char text[60];
    if (times >= 2 * kDay) {
        std::snprintf(text, sizeof(text), "%.0f days a second", times / kDay);
    } else {
        std::snprintf(text, sizeof(text), "%.0f times as fast", times);
    }
    return text;
}

std::string TimeLeftWords(double seconds)
{
    char text[60];
    if (seconds < 120) {
        std::snprintf(text, sizeof(text), ", %.0f s left", seconds);
    } else if (seconds < 2 * 3600) {
        std::snprintf(text, sizeof(text), ", %.0f min left", seconds / 60);
    } else {
        std::snprintf(text, sizeof(text), ", %.0f h left", seconds / 3600);
    }
    return text;
}

double Seconds(Duration duration) { return std::chrono::duration<double>(duration).count(); }

}  // namespace

// --- The terminal ---

bool Terminal::Write(const std::string& text) const { return WriteAll(m_file, text); }

Terminal::int_type Terminal::overflow(int_type c)
{
    if (c != traits_type::eof()) m_pending += traits_type::to_char_type(c);
    return traits_type::not_eof(c);
}

int Terminal::sync()
{
    std::string text = std::exchange(m_pending, {});
    if (text.empty()) return 0;
    if (m_left && !m_erased) {
        text.insert(0, kErase);
        m_erased = true;
    } else if (!m_last_line.empty()) {
        text = kErase + text + m_last_line;
    }
    return Write(text) ? 0 : -1;
}

void Terminal::SetLastLine(const std::string& text)
{
    if (text == m_last_line) return;
    m_last_line = text;
    Write(kErase + text);
}

void Terminal::EraseLastLine()
{
    m_erased = true;
    Write(kErase);
}

// --- The progress ---

void Progress::Begin(const Machine& pc, Clock::time_point now)
{
    m_from = pc.now();
    m_began = now;
    m_next = now + std::chrono::seconds{1};
    m_runs = true;
}

void Progress::Tick(const Machine& pc, Clock::time_point now)
{
    if (!m_runs || now < m_next) return;
    m_next = now + std::chrono::milliseconds{200};
    const double host = std::chrono::duration<double>(now - m_began).count();
    const double times = Seconds(pc.now() - m_from) / host;
    std::string text = FormatCalendar(pc.clock()).substr(0, 16) + ", " + SpeedWords(times);
    const Instant until = pc.scheduler.driver_deadline();
    if (until != kNever && times > 0) text += TimeLeftWords(Seconds(until - pc.now()) / times);
    m_show(text);
    m_shown = true;
}

void Progress::End()
{
    m_runs = false;
    if (std::exchange(m_shown, false)) m_show("");
}

// --- The screen ---

Screen::Screen()
    : m_terminal(isatty(STDOUT_FILENO) ? std::make_unique<Terminal>(STDOUT_FILENO) : nullptr),
      m_out(m_terminal.get())
{
    if (m_terminal) {
        m_progress = std::make_unique<Progress>(
            [this](const std::string& text) { m_terminal->SetLastLine(text); });
    } else if (isatty(STDERR_FILENO)) {
        m_progress = std::make_unique<Progress>(
            [](const std::string& text) { WriteAll(STDERR_FILENO, kErase + text); });
    }
}

std::ostream& Screen::out() { return m_terminal ? m_out : std::cout; }
