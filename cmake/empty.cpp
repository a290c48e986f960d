// libvrn is made of the subsystem archives; this file only gives the target a source.
