# Converts introspection XML with comments to roff. The comments have the form of gdbus-codegen's: a name and a colon,
# lines such as "@argument: what it is", and paragraphs. Indented paragraphs stay as they are.

function Roff(text) {
    gsub(/\\/, "\\e", text)
    gsub(/-/, "\\-", text)
    gsub(/'/, "\\(aq", text)
    return (text ~ /^\./ ? "\\\\&" : "") text
}

function Trimmed(text) {
    sub(/^ +/, "", text)
    sub(/ +$/, "", text)
    return text
}

# Splits the comment into the texts about the arguments, and the rest as roff.
function ReadComment(    i, line, margin, argument, verbatim, blank) {
    split("", about)
    body = ""
    margin = -1
    for (i = 1; i <= commentLines; ++i) {
        line = comment[i]
        if (Trimmed(line) == "") {
            argument = ""
            blank = 1
            continue
        }
        if (margin < 0) {
            margin = match(line, /[^ ]/) - 1
            if (line ~ /^ *[A-Za-z0-9_]+: *$/) {
                continue
            }
        }
        line = substr(line, margin + 1)
        if (match(line, /^@[A-Za-z0-9_]+: /)) {
            argument = substr(line, 2, RLENGTH - 3)
            about[argument] = substr(line, RLENGTH + 1)
            continue
        }
        if (argument != "") {
            about[argument] = about[argument] " " Trimmed(line)
            continue
        }
        if (verbatim != (line ~ /^ /)) {
            verbatim = !verbatim
            body = body (verbatim ? ".PP\n.nf\n" : ".fi\n.PP\n")
        } else if (blank && body != "") {
            body = body (verbatim ? "\n" : ".PP\n")
        }
        blank = 0
        body = body Roff(line) "\n"
    }
    if (verbatim) {
        body = body ".fi\n"
    }
    commentLines = 0
}

function Attribute(name) {
    return match($0, " " name "=\"[^\"]*\"") ? substr($0, RSTART + length(name) + 3, RLENGTH - length(name) - 4) : ""
}

function EndMember(    i) {
    printf ".SS %s\n", Roff(member)
    for (i = 1; i <= arguments; ++i) {
        printf ".TP\n\\fB%s\\fR (%s, %s)\n%s\n", Roff(argName[i]), argType[i], argDirection[i], \
            argName[i] in about ? Roff(about[argName[i]]) : "\\&"
    }
    printf "%s%s", arguments && body != "" ? ".PP\n" : "", body
}

/<!--/ { inComment = 1; commentLines = 0; sub(/.*<!--/, "") }
inComment {
    ended = sub(/ *-->.*/, "")
    comment[++commentLines] = $0
    inComment = !ended
    next
}
/<node>/ { ReadComment(); introduction = body; body = "" }
/<interface / {
    printf ".SH \"%s\"\n%s", Roff(Attribute("name")), introduction
    introduction = ""
    split("", about)
}
/<(method|signal|property) / {
    ReadComment()
    member = Attribute("name")
    arguments = 0
}
/<arg / {
    argName[++arguments] = Attribute("name")
    argType[arguments] = Attribute("type")
    argDirection[arguments] = Attribute("direction")
}
/<\/(method|signal|property)>/ || /<(method|signal|property) .*\/>/ { EndMember() }
