// Nothing: a library has to have a source, and this one is there for its precompiled headers.
