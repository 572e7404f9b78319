#pragma once

// What screen readers read from the program's own controls. Qt describes its standard widgets
// itself; two kinds need more:
// - the progress bar XP_ProgressBar, which Qt does not know: it is described as a progress
//   bar whose name and text are what it shows ("42 %", "Searching.."; the percentage when it
//   shows no text), whose value is Value between Min and Max, and whose description is its
//   accessible name ("Backup progress");
// - labels that show a changing status ("Processing 1 of 2", a file count, a throughput): a
//   label with an accessible name is read by that name alone, so a status label marked here is
//   read by the text it shows, and its accessible name ("Files found") becomes its description.
// The descriptions are installed with the first progress bar or status label made.

class QLabel;
class QWidget;

// Marks `label` as one whose text is read as its name.
void MarkStatusText(QLabel* label);

// Installs the descriptions (once per process).
void InstallAccessibility();
