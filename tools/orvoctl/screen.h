#pragma once

#include <QString>
#include <QStringList>

/// What a Screen shows.
struct Picture
{
    QString title;
    /// At the right of the title.
    QString position;
    bool isLoading = false;
    /// The rows on screen, the first at the top.
    QStringList rows;
    /// Of these the one under the cursor; -1 for none.
    int current = -1;
    QString status;
    bool statusIsError = false;
};

/**
 * The whole terminal, as long as this lives: a title line, rows and a status line. The terminal is as before
 * afterwards.
 *
 * One at a time, in the main thread.
 */
class Screen
{
public:
    enum class Key { None, Up, Down, PageUp, PageDown, Home, End, Enter, Back, Quit };

    /// Whether stdin and stdout are a terminal.
    static bool isPossible();
    /// Throws a Failure of ExitStatus::Usage for a terminal of unknown kind.
    Screen();
    ~Screen();
    Screen(const Screen&) = delete;
    Screen& operator=(const Screen&) = delete;

    /// How many rows there is space for; at least 1.
    int rowCount() const;
    void draw(const Picture& picture);
    /// Takes the terminal's present size.
    void resize();
    /// The next key that was pressed, without waiting. Quit when the terminal is gone.
    Key readKey();

private:
    void drawLine(int line, const QString& text, unsigned attributes);

    /// The library's handle of the terminal.
    void* m_terminal;
};
