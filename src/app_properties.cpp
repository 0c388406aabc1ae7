// The properties dialogue: which facts an entry has to show.

#include "app.h"

#include "strutil.h"

// Size and owner are always told.
int App::properties_rows() const {
    const file_ops::Properties& p = m_properties;
    int rows = 2;
    for (const bool shown : {!su::parent_of(p.path).empty(), p.is_dir, p.mtime > 0,
                             !p.link_target.empty(), p.free_space >= 0})
        rows += shown ? 1 : 0;
    return rows;
}
