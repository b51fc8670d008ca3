#include "temhostd.h"
int temhostd_main(int, char **) { return 0; }
