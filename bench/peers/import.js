'use strict';

/** A package's namespace, found from where the peers are installed. */
module.exports = (name) => import(name);
