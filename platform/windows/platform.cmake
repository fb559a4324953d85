# What Windows adds to the library's build. No source here implements the platform headers yet, so nothing links: the
# objects of zqcore/ and platform/common/ are compiled (preset mingw), which keeps them free of Linux.
