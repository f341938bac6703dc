// What the library leaves behind on purpose. docs/reliability.md tells the users.
#pragma once

struct Keep {
  const char *function;   // that made it, or released it
  const char *call;       // whose failure leaves it; empty: left in any case
  const char *operation;  // in this operation only; empty: in all
  const char *thing;
  const char *reason;
};

// The row that allows it, or null; notes that the row was needed.
const Keep *AllowedToStay(const char *function, const char *call, const char *operation,
                          const char *thing);
// Likewise for what a function releases although it is not there.
const Keep *AllowedToRelease(const char *function, const char *call, const char *operation,
                             const char *thing);
// A row that nothing needed, or null.
const Keep *UnusedKeep();
