'use strict';

// Whether a selection is open. A synchronous snapshot replaces the title and process that an open
// selection reports at its end, so whoever takes one waits.
module.exports = { open: false };
