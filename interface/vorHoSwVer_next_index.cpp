// The software table's row counter. It moves into the software inventory
// provider (vorHoSwVer_interface.cpp), which owns and advances it; until
// then it stays 0 and the next-index object reads 1.
int g_NextIndex = 0;
