#pragma once

// The catalogue's integrity check: "PRAGMA INTEGRITY_CHECK" on a fresh connection. Only an
// error in running it counts as failure; the rows it returns are not examined.
bool IntegrityCheck();
