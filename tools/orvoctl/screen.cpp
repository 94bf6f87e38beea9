#include "screen.h"

#include "failure.h"
#include "output.h"

// Its macros have names like "timeout" and "erase".
#define NCURSES_NOMACROS
#define NCURSES_WIDECHAR 1
#include <curses.h>

#include <clocale>
#include <cstring>
#include <cwchar>
#include <langinfo.h>
#include <poll.h>
#include <string>
#include <sys/ioctl.h>
#include <unistd.h>

namespace {

constexpr int escapeDelayMs = 25;
constexpr int controlH = 8;
constexpr int deleteKey = 127;

/// As much of the text as fits into so many columns, filled up with blanks.
std::wstring fitted(const QString& text, int columns)
{
    std::wstring shown;
    int used = 0;
    for (const wchar_t c : Output::visible(text).toStdWString()) {
        // A sign that the terminal cannot show has no width.
        const int width = wcwidth(c);
        if (width < 0)
            continue;
        if (used + width > columns)
            break;
        shown += c;
        used += width;
    }
    return shown.append(size_t(qMax(0, columns - used)), L' ');
}

int widthOf(const QString& text)
{
    int width = 0;
    for (const wchar_t c : Output::visible(text).toStdWString())
        width += qMax(0, wcwidth(c));
    return width;
}

} // namespace

bool Screen::isPossible()
{
    return isatty(STDIN_FILENO) && isatty(STDOUT_FILENO);
}

Screen::Screen()
{
    // The other verbs write UTF-8 wherever they run, too.
    if (strcmp(nl_langinfo(CODESET), "UTF-8") != 0)
        setlocale(LC_CTYPE, "C.UTF-8");
    m_terminal = newterm(nullptr, stdout, stdin);
    if (!m_terminal)
        throw Failure{
            ExitStatus::Usage,
            QStringLiteral("cannot draw on a terminal of the kind '%1'").arg(QString::fromLocal8Bit(qgetenv("TERM")))};
    set_escdelay(escapeDelayMs);
    cbreak();
    noecho();
    nonl();
    keypad(stdscr, true);
    nodelay(stdscr, true);
    curs_set(0);
}

Screen::~Screen()
{
    endwin();
    delscreen(static_cast<SCREEN*>(m_terminal));
}

int Screen::rowCount() const
{
    return qMax(1, getmaxy(stdscr) - 2);
}

void Screen::drawLine(int line, const QString& text, unsigned attributes)
{
    const std::wstring shown = fitted(text, getmaxx(stdscr));
    wattrset(stdscr, int(attributes));
    mvwaddnwstr(stdscr, line, 0, shown.data(), int(shown.size()));
    wattrset(stdscr, A_NORMAL);
}

void Screen::draw(const Picture& picture)
{
    const int lines = getmaxy(stdscr);
    const int columns = getmaxx(stdscr);
    werase(stdscr);
    drawLine(0, picture.title, A_BOLD);
    const QString right =
        QLatin1Char(' ') + (picture.isLoading ? QStringLiteral("loading ") : QString()) + picture.position;
    const int column = qMax(0, columns - widthOf(right));
    const std::wstring shown = fitted(right, columns - column);
    wattrset(stdscr, A_BOLD);
    mvwaddnwstr(stdscr, 0, column, shown.data(), int(shown.size()));
    for (int i = 0; i < picture.rows.size() && i + 1 < lines - 1; ++i)
        drawLine(i + 1, picture.rows.at(i), i == picture.current ? A_REVERSE : A_NORMAL);
    if (lines > 2)
        drawLine(lines - 1, picture.status, picture.statusIsError ? A_BOLD : A_DIM);
    // Where no reverse video shows it, the cursor tells the row.
    wmove(stdscr, qBound(0, picture.current + 1, lines - 1), 0);
    wrefresh(stdscr);
}

void Screen::resize()
{
    winsize size{};
    if (ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_row > 0 && size.ws_col > 0)
        resizeterm(size.ws_row, size.ws_col);
    // What the terminal made of its old contents is unknown.
    clearok(curscr, true);
}

Screen::Key Screen::readKey()
{
    for (;;) {
        const int key = wgetch(stdscr);
        switch (key) {
        case ERR: {
            pollfd input{STDIN_FILENO, POLLIN, 0};
            const bool isGone = poll(&input, 1, 0) > 0 && (input.revents & (POLLHUP | POLLERR | POLLNVAL));
            return isGone ? Key::Quit : Key::None;
        }
        case KEY_UP:
            return Key::Up;
        case KEY_DOWN:
            return Key::Down;
        case KEY_PPAGE:
            return Key::PageUp;
        case KEY_NPAGE:
            return Key::PageDown;
        case KEY_HOME:
            return Key::Home;
        case KEY_END:
            return Key::End;
        case KEY_ENTER:
        case '\r':
        case '\n':
            return Key::Enter;
        case KEY_BACKSPACE:
        case controlH:
        case deleteKey:
            return Key::Back;
        case 'q':
            return Key::Quit;
        default:
            break;
        }
    }
}
