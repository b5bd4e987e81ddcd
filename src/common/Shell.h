#pragma once

/// Runs one command of constants through the shell and waits for it, as system() does, but without touching the
/// process's signal dispositions: system() ignores SIGQUIT while the command runs, and a SIGQUIT that ends the daemon
/// must not get lost. The command takes the shell's place, so a list of commands is not possible.
///
/// The command starts with no signal blocked and inherits only standard output and error. It reads nothing: its
/// standard input is empty and it has no terminal, so that it can never wait for an answer. It ends with this process,
/// however that ends: what it would still write belongs to nobody any more.
///
/// May be called from any thread, which waits; no signal is lost meanwhile. Returns the command's wait status (that of
/// an exit with 127 when there is no such command), or -1 when nothing could be started.
int RunShell(const char* command);
