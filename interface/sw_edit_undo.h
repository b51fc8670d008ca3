// SPDX-License-Identifier: Apache-2.0
// Ours, beside the software inventory: what one operator edit of a package
// replaced, so that a SET whose later binding fails can be taken back (the
// software table's UNDO, mib-extns/sw_set_phases.h).
#pragma once

#include "interface/vorHoSwVer_interface.h"

// What an edit of one column (3, 5 or 7) of a package replaces: the value
// of its live row and what the edit list held for it, so that a SET whose
// later varbind fails can put both back.
typedef struct _swver_edit_undo {
    int column;
    int row_found;
    int row_type;
    char row_text[SWVER_LOC_SIZE];
    int entry_dirty;
    int entry_type;
    char entry_text[SWVER_LOC_SIZE];
} swver_edit_undo;
void save_swver_edit(const char *pkgName, int column, swver_edit_undo *undo);
// Puts back what save_swver_edit saw, in the edit list and in every
// current row of the package (a rebuild may have come in between).
void undo_swver_edit(const char *pkgName, const swver_edit_undo *undo);
