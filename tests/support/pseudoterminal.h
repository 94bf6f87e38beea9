#pragma once

#include <QProcess>
#include <QProcessEnvironment>
#include <QString>
#include <QStringList>

#include <cstring>
#include <fcntl.h>
#include <pty.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>
#include <utmp.h>
#include <vterm.h>

/// A terminal of the kind xterm, without a window, and a program on it, which leads the session there.
class PseudoTerminal : public QProcess
{
public:
    explicit PseudoTerminal(int rows = 12, int columns = 40) : m_vterm(vterm_new(rows, columns))
    {
        const winsize size{static_cast<unsigned short>(rows), static_cast<unsigned short>(columns), 0, 0};
        if (openpty(&m_master, &m_slave, nullptr, nullptr, &size) != 0)
            qFatal("no pseudo-terminal: %s", strerror(errno));
        fcntl(m_master, F_SETFD, FD_CLOEXEC);
        fcntl(m_master, F_SETFL, O_NONBLOCK);
        tcgetattr(m_slave, &m_before);

        vterm_set_utf8(m_vterm, 1);
        m_screen = vterm_obtain_screen(m_vterm);
        static const VTermScreenCallbacks callbacks = [] {
            VTermScreenCallbacks callbacks{};
            callbacks.settermprop = [](VTermProp prop, VTermValue* value, void* user) {
                auto* self = static_cast<PseudoTerminal*>(user);
                if (prop == VTERM_PROP_ALTSCREEN)
                    self->m_altScreen = value->boolean;
                return 1;
            };
            return callbacks;
        }();
        vterm_screen_set_callbacks(m_screen, &callbacks, this);
        vterm_screen_enable_altscreen(m_screen, 1);
        vterm_screen_reset(m_screen, 1);

        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        environment.insert("TERM", "xterm");
        // Of a poor system: the program sees to its characters itself.
        environment.insert("LC_ALL", "C");
        environment.remove("LINES");
        environment.remove("COLUMNS");
        setProcessEnvironment(environment);
    }
    ~PseudoTerminal() override
    {
        kill();
        waitForFinished();
        hangUp();
        vterm_free(m_vterm);
    }

    void setKind(const QString& term)
    {
        QProcessEnvironment environment = processEnvironment();
        environment.insert("TERM", term);
        setProcessEnvironment(environment);
    }
    void press(const QByteArray& keys) { (void)!::write(m_master, keys.constData(), size_t(keys.size())); }
    void resize(int rows, int columns)
    {
        lines();
        vterm_set_size(m_vterm, rows, columns);
        const winsize size{static_cast<unsigned short>(rows), static_cast<unsigned short>(columns), 0, 0};
        ioctl(m_master, TIOCSWINSZ, &size);
    }
    /// As if its window were closed.
    void hangUp()
    {
        for (int* file : {&m_slave, &m_master}) {
            if (*file >= 0)
                ::close(*file);
            *file = -1;
        }
    }

    /// What stands on the screen now, without blanks at the ends of lines.
    QStringList lines()
    {
        char bytes[4096];
        for (ssize_t size; m_master >= 0 && (size = ::read(m_master, bytes, sizeof bytes)) > 0;)
            take(QByteArray(bytes, int(size)));
        int rows = 0;
        int columns = 0;
        vterm_get_size(m_vterm, &rows, &columns);
        QStringList lines;
        for (int row = 0; row < rows; ++row) {
            QString line;
            for (int column = 0; column < columns;) {
                const VTermScreenCell cell = cellAt(row, column);
                if (cell.chars[0] == 0)
                    line += QLatin1Char(' ');
                for (int i = 0; i < VTERM_MAX_CHARS_PER_CELL && cell.chars[i]; ++i)
                    line += QString::fromUcs4(&cell.chars[i], 1);
                column += qMax(1, int(cell.width));
            }
            while (line.endsWith(QLatin1Char(' ')))
                line.chop(1);
            lines.append(line);
        }
        return lines;
    }
    QString line(int row) { return lines().value(row); }
    QString last() { return lines().last(); }
    /// The line in reverse video; empty when there is none or more than one.
    QString marked()
    {
        const QStringList shown = lines();
        QString marked;
        for (int row = 0; row < shown.size(); ++row) {
            if (!cellAt(row, 0).attrs.reverse)
                continue;
            if (!marked.isEmpty())
                return QString();
            marked = shown.at(row);
        }
        return marked;
    }
    bool isFullScreen()
    {
        lines();
        return m_altScreen;
    }
    /// Whether all that a program may set is as it was at first.
    bool isRestored()
    {
        lines();
        termios now;
        tcgetattr(m_slave, &now);
        return !m_altScreen && isCursorVisible() && now.c_iflag == m_before.c_iflag && now.c_oflag == m_before.c_oflag
               && now.c_lflag == m_before.c_lflag && now.c_cflag == m_before.c_cflag
               && memcmp(now.c_cc, m_before.c_cc, sizeof now.c_cc) == 0;
    }

protected:
    void setupChildProcess() override { login_tty(m_slave); }

private:
    void take(const QByteArray& bytes)
    {
        m_output += bytes;
        vterm_input_write(m_vterm, bytes.constData(), size_t(bytes.size()));
    }
    /// By what was written: the emulation takes the cursor's visibility for a part of its saved position.
    bool isCursorVisible() const { return m_output.lastIndexOf("\033[?25h") >= m_output.lastIndexOf("\033[?25l"); }
    VTermScreenCell cellAt(int row, int column) const
    {
        VTermScreenCell cell{};
        vterm_screen_get_cell(m_screen, VTermPos{row, column}, &cell);
        return cell;
    }

    VTerm* const m_vterm;
    VTermScreen* m_screen;
    int m_master = -1;
    int m_slave = -1;
    termios m_before{};
    QByteArray m_output;
    bool m_altScreen = false;
};
