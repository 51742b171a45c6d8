'use strict';

// Whether a selection is open. A synchronous snapshot would replace the title and process that the
// selection reports at its end, so do not take one meanwhile.
module.exports = { open: false };
