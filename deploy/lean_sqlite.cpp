// What is left out of SQLite in the CGI programs: full-text search, R-trees, and its tables about
// itself. A connection sets them up when it is opened, and no request asks for them.
//
// SQLite has a list of these functions, and takes 0 for success. For a function that stands here
// the linker takes no file from SQLite's archive. They are weak: where an archive has all of SQLite
// in one file, that has its own, and the program links all the same. Should one be called otherwise
// some day, it is back.
extern "C" {
__attribute__((weak)) int sqlite3Fts3Init(void*) {
    return 0;
}
__attribute__((weak)) int sqlite3Fts5Init(void*) {
    return 0;
}
__attribute__((weak)) int sqlite3RtreeInit(void*) {
    return 0;
}
__attribute__((weak)) int sqlite3DbstatRegister(void*) {
    return 0;
}
__attribute__((weak)) int sqlite3StmtVtabInit(void*) {
    return 0;
}
}
