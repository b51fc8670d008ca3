// SPDX-License-Identifier: Apache-2.0
#include "interface/sw_edit_undo.h"

#include <cstring>

namespace {

altered_swver_entry *altered_entry_of(const char *pkgName) {
    for (altered_swver_entry *entry = alterList; entry; entry = entry->next) {
        if (strcmp(entry->pkgName, pkgName) == 0) {
            return entry;
        }
    }
    return nullptr;
}

// The column's value of a row or an edit entry and, for an entry, its dirty bit.
struct ColumnOf {
    int *type;
    char *text;
    size_t size;
};

ColumnOf column_of(swver_t *row, int column) {
    switch (column) {
    case SWVER_TYPE:
        return {&row->type, nullptr, 0};
    case SWVER_DESCRIPTION:
        return {nullptr, row->description, sizeof(row->description)};
    case SWVER_LOCATION:
        return {nullptr, row->location, sizeof(row->location)};
    default:
        return {nullptr, nullptr, 0};
    }
}

ColumnOf column_of(altered_swver_entry *entry, int column, int **dirty) {
    switch (column) {
    case SWVER_TYPE:
        *dirty = &entry->type_dirty_bit;
        return {&entry->type, nullptr, 0};
    case SWVER_DESCRIPTION:
        *dirty = &entry->desc_dirty_bit;
        return {nullptr, entry->description, sizeof(entry->description)};
    case SWVER_LOCATION:
        *dirty = &entry->loc_dirty_bit;
        return {nullptr, entry->location, sizeof(entry->location)};
    default:
        *dirty = nullptr;
        return {nullptr, nullptr, 0};
    }
}

void copy_column(const ColumnOf &to, int type, const char *text) {
    if (to.type) {
        *to.type = type;
    }
    if (to.text) {
        memset(to.text, 0, to.size);
        memcpy(to.text, text, strnlen(text, to.size - 1));
    }
}

void save_column(const ColumnOf &from, int *type, char *text, size_t size) {
    if (from.type) {
        *type = *from.type;
    }
    if (from.text) {
        memcpy(text, from.text, from.size < size ? from.size : size);
        text[size - 1] = '\0';
    }
}

} // namespace

void save_swver_edit(const char *pkgName, int column, swver_edit_undo *undo) {
    memset(undo, 0, sizeof(*undo));
    undo->column = column;
    for (vorHo_Swver_t *node = swVerList; node; node = node->next) {
        if (strcmp(node->vorSwverEntry->name, pkgName) == 0) {
            undo->row_found = 1;
            save_column(column_of(node->vorSwverEntry, column), &undo->row_type, undo->row_text,
                        sizeof(undo->row_text));
            break;
        }
    }
    if (altered_swver_entry *entry = altered_entry_of(pkgName)) {
        int *dirty = nullptr;
        const ColumnOf edit = column_of(entry, column, &dirty);
        if (dirty && *dirty) {
            undo->entry_dirty = 1;
            save_column(edit, &undo->entry_type, undo->entry_text, sizeof(undo->entry_text));
        }
    }
}

void undo_swver_edit(const char *pkgName, const swver_edit_undo *undo) {
    if (altered_swver_entry *entry = altered_entry_of(pkgName)) {
        int *dirty = nullptr;
        const ColumnOf edit = column_of(entry, undo->column, &dirty);
        if (dirty) {
            *dirty = undo->entry_dirty;
            copy_column(edit, undo->entry_type, undo->entry_text);
        }
    }
    if (!undo->row_found) {
        return;
    }
    for (vorHo_Swver_t *node = swVerList; node; node = node->next) {
        if (strcmp(node->vorSwverEntry->name, pkgName) == 0) {
            copy_column(column_of(node->vorSwverEntry, undo->column), undo->row_type,
                        undo->row_text);
        }
    }
}
