# Package files, pkg-config files and headers.
