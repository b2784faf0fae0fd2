# What `cmake --install` lays down: library, header, program, find_package(Tessel) and tessel.pc.
