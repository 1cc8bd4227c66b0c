# Renders one part of kelsim's HTML report (see report-html.sh) from the files of a run:
#   awk -v part=outcome|changes|log|health|lines|pre [-v VAR=VALUE...] -f report-html.awk FILE...
# Every text is escaped, since names on a stick may hold markup, blanks and bytes that are not
# UTF-8: such a byte is shown as \xHH. Run with LC_ALL=C, so that a character is a byte.
BEGIN {
    for (i = 1; i < 256; i++)
        ord[sprintf("%c", i)] = i
}

# A byte shown as \xHH: marked, or as plain text (-v plain=1) where no markup may stand (a title).
function raw(b) {
    return plain ? sprintf("\\x%02x", b) : "<span class=\"raw\">\\x" sprintf("%02x", b) "</span>"
}

# The text as HTML: markup characters as entities, control characters and bytes that do not form
# UTF-8 as visible escapes, and well-formed UTF-8 as it is.
function html(s,    out, i, n, c, b, len, j, second, ok) {
    out = ""
    n = length(s)
    for (i = 1; i <= n; i++) {
        c = substr(s, i, 1)
        b = ord[c]
        if (c == "&") out = out "&amp;"
        else if (c == "<") out = out "&lt;"
        else if (c == ">") out = out "&gt;"
        else if (c == "\"") out = out "&quot;"
        else if (b == 9 || (b >= 32 && b < 127)) out = out c
        else if (b < 128) out = out raw(b)
        else {
            len = b >= 194 && b <= 223 ? 2 : b >= 224 && b <= 239 ? 3 : b >= 240 && b <= 244 ? 4 : 0
            ok = len > 0 && i + len - 1 <= n
            for (j = 1; ok && j < len; j++)
                ok = ord[substr(s, i + j, 1)] >= 128 && ord[substr(s, i + j, 1)] <= 191
            if (ok) { # no overlong forms, no surrogates, nothing past U+10FFFF
                second = ord[substr(s, i + 1, 1)]
                ok = !(b == 224 && second < 160) && !(b == 237 && second > 159) &&
                     !(b == 240 && second < 144) && !(b == 244 && second > 143)
            }
            if (ok) { out = out substr(s, i, len); i += len - 1 }
            else out = out raw(b)
        }
    }
    return out
}

function cell(s) { return "<td>" html(s) "</td>" }

# outcome: the report section, then the health section; -v status=, -v meaning=
part == "outcome" && FNR == 1 { file++ }
part == "outcome" && file == 1 && FNR == 1 { report = $0 }
part == "outcome" && file == 2 && /^bad / { bad = 1 }
part == "outcome" && file == 2 && /^(ok|bad|--) / { checked++ }

# changes: "SIZE LINE" for each change line of the text report ("-" where no file is left).
part == "changes" {
    size = $1
    line = substr($0, length(size) + 2)
    verb = substr(line, 1, 8)
    sub(/ +$/, "", verb)
    path = substr(line, 10)
    mode = hash = ""
    if (verb == "mode" && match(path, / [0-7]+ -> [0-7]+$/)) {
        mode = substr(path, RSTART + 1)
        path = substr(path, 1, RSTART - 1)
        sub(/->/, "\342\206\222", mode)
    } else if (verb != "removed" && path ~ /\)$/) {
        for (at = length(path) - 1; at > 1 && substr(path, at, 2) != " ("; at--) ;
        details = substr(path, at + 2, length(path) - at - 2)
        path = substr(path, 1, at - 1)
        mode = details
        sub(/ .*/, "", mode)
        hash = substr(details, length(mode) + 2)
        if (mode == "link") hash = "\342\206\222 " hash
    }
    kind = path ~ /\/$/ ? " folder" : ""
    printf "<tr class=\"%s%s\">%s<td class=\"path\">%s</td>%s%s%s</tr>\n", verb, kind, cell(verb),
           html(path), cell(mode), cell(size == "-" ? "" : size), cell(hash)
}

# log: the colours the panel showed (-v colours=FILE, -v known=1 when they were recorded), the report
# section, then this run's lines.
part == "log" && FILENAME == colours { colour[++recorded] = substr($0, 1, 7); text[recorded] = substr($0, 9); next }
part == "log" && FNR == 1 { file++ }
part == "log" && file == 1 && FNR == 1 {
    state = $0 == "[失败]" ? "fail" : $0 == "[成功]" ? "ok" : "none"
    printf "<p class=\"report %s\">%s</p>\n<ol class=\"log\">\n", state, html($0)
    next
}
part == "log" && file == 2 {
    # The lines the program showed, in order; the others (the run's header, the lines of a check
    # that failed) went to the log alone. Without a record of colours, none is told apart.
    style = known ? " class=\"unshown\"" : ""
    if (next_record < recorded && text[next_record + 1] == $0) {
        next_record++
        style = ""
        if (colour[next_record] == "#ff0000") style = " class=\"red\""
        else if (colour[next_record] ~ /^#[0-9a-f]+$/ && colour[next_record] != "#000000")
            style = " style=\"color:" colour[next_record] "\""
    }
    printf "<li%s>%s</li>\n", style, html($0)
}

# health: "ok", "bad" or "--" lines.
part == "health" {
    mark = $1 == "ok" ? "ok" : $1 == "bad" ? "bad" : "unchecked"
    printf "<li class=\"%s\">%s</li>\n", mark, html($0)
}

# lines: a plain list.
part == "lines" { printf "<li>%s</li>\n", html($0) }

# pre: preformatted text.
part == "pre" { print html($0) }

END {
    if (part == "log")
        print "</ol>"
    if (part == "outcome") {
        state = report == "[失败]" ? "fail" : report == "[成功]" ? "ok" : "none"
        health = checked == 0 ? "not checked" : bad ? "not healthy (see Panel health)" : "healthy"
        printf "<div class=\"outcome%s\">\n", status == 0 ? "" : " failed"
        printf "<p class=\"meaning %s\">%s</p>\n", status == 0 ? "ok" : "fail", html(meaning)
        print "<dl>"
        printf "<dt>Report</dt><dd class=\"report %s\">%s</dd>\n", state, html(report == "" ? "(none)" : report)
        printf "<dt>Exit status</dt><dd class=\"%s\">%s</dd>\n", status == 0 ? "ok" : "fail", html(status)
        printf "<dt>Panel health</dt><dd class=\"%s\">%s</dd>\n", bad ? "fail" : checked ? "ok" : "", html(health)
        print "</dl>\n</div>"
    }
}
