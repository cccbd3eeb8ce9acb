// The game's board, for the layers that read the length of the game.
#include "position.h"

ThreadBoard *game_board = nullptr;
