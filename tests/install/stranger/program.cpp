// A stranger's program in C++: adds a record to a store in a session.
#include <tav/session.h>

#include <cstdio>

int main(int argc, char **argv) {
    try {
        tav::Session session(argc == 2 ? argv[1] : "");
        session.Store().Add(0, tav::Record(13).With(14, 2).With(15, 7));
        session.Commit("from a program");
    } catch (const tav::Error &error) {
        fprintf(stderr, "%s\n", error.what());
        return 1;
    }
    return 0;
}
