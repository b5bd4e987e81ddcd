#pragma once

/// Runs a command of constants through the shell and waits for it, as system() does, but without touching the process's
/// signal dispositions: system() ignores SIGQUIT while the command runs, and a SIGQUIT that ends the daemon must not
/// get lost. The command starts with no signal blocked and inherits only standard input, output and error.
///
/// Returns the wait status of the shell, or -1 when it could not be started.
int RunShell(const char* command);
