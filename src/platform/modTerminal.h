#pragma once

// What the process's standard streams are connected to: a progress line that rewrites itself
// is drawn only where a person watches a terminal, never into a file or a pipe.

// Whether standard error is a terminal.
bool StderrIsTerminal();
