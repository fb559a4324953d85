# What Windows adds to the library's build. No source here implements the platform headers yet, so nothing links. The
# preset mingw compiles the objects of zqcore/ and platform/common/, which keeps them free of Linux.
