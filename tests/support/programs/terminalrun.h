#pragma once

#include <QByteArray>
#include <QFile>
#include <QSocketNotifier>
#include <QString>
#include <QStringList>

#include <memory>
#include <vector>

#include <pty.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

/// One run of a program in a terminal of 80 columns. The destructor ends the program.
class TerminalRun
{
public:
    TerminalRun(const QString &program, const QStringList &arguments)
    {
        std::vector<QByteArray> texts{QFile::encodeName(program)};
        for (const QString &argument : arguments)
            texts.push_back(argument.toLocal8Bit());
        std::vector<char *> pointers;
        for (QByteArray &text : texts)
            pointers.push_back(text.data());
        pointers.push_back(nullptr);

        winsize size = {};
        size.ws_row = 24;
        size.ws_col = 80;
        m_process = ::forkpty(&m_terminal, nullptr, nullptr, &size);
        if (m_process == 0) {
            ::setenv("TERM", "xterm", 1);
            ::execv(pointers.front(), pointers.data());
            ::_exit(127);
        }
        m_notifier = std::make_unique<QSocketNotifier>(m_terminal, QSocketNotifier::Read);
        QObject::connect(m_notifier.get(), &QSocketNotifier::activated, [this] { read(); });
    }
    ~TerminalRun()
    {
        m_notifier.reset();
        ::close(m_terminal);
        if (m_process > 0) {
            ::kill(m_process, SIGTERM);
            ::waitpid(m_process, nullptr, 0);
        }
    }
    TerminalRun(const TerminalRun &) = delete;
    TerminalRun &operator=(const TerminalRun &) = delete;

    bool type(const QByteArray &keys) const
    {
        return ::write(m_terminal, keys.constData(), static_cast<size_t>(keys.size())) == keys.size();
    }
    void sendSignal(int number) const
    {
        if (m_process > 0) // kill(-1) would end all processes that this user may end
            ::kill(m_process, number);
    }
    /// Returns all text on the terminal, including the typed text. Lines end with CR LF.
    QByteArray screen() const { return m_screen; }
    /// Returns whether the program has ended. If so, screen() and status() are complete.
    bool isOver() const { return m_process < 0; }
    int status() const { return m_status; }

private:
    void read()
    {
        char bytes[4096];
        const ssize_t count = ::read(m_terminal, bytes, sizeof bytes);
        if (count > 0) {
            m_screen.append(bytes, static_cast<int>(count));
            return;
        }
        // Reading failed, so all programs in the terminal have ended.
        m_notifier->setEnabled(false);
        int status = 0;
        ::waitpid(m_process, &status, 0);
        m_process = -1;
        m_status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }

    int m_terminal = -1;
    pid_t m_process = -1;
    int m_status = -1;
    QByteArray m_screen;
    std::unique_ptr<QSocketNotifier> m_notifier;
};
