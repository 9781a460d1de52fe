# stubs later
