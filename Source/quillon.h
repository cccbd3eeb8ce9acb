// The engine's entry: start-up, one run mode, shutdown.
#pragma once

int engine_main(int argc, char **argv);
