# A description in XML has a page that is made of it, the header one of its own.
s,\]\(([^)]*/)?org\.lumra\.tv\.networkspeaker\.([a-z]*)\.xml\),](build/docs/pages/dbus-\2.md),g
s,\]\(([^)]*/)?KivServiceInterface\.h\),](KivServiceInterface_8h.html),g
# The rest of what is linked lies in one folder.
s,\]\([^)]*/([a-z.-]*\.(cmake|conf|json|png|svg))\),](\1),g
# Doxygen does not know the way to a heading of another page.
s,\]\(([^)]*\.md)#[^)]*\),](\1),g
# Nor, where there are files of the same name, the way to another folder but from the top.
s,\]\(\.\./,](,g
# Nor does it show what it takes for its own escapes.
/^```/,/^```/!s,%([a-z]),%%\1,g
