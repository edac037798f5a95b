// A header that cannot be included twice; the header test must refuse it.
struct Unguarded {};
