# A manual page from the text that --help prints. -v name=tessel-histogram -v version=1.2.3
function literal(text) {
    gsub(/\\/, "\\e", text)
    gsub(/-/, "\\-", text)
    return text ~ /^[.']/ ? "\\&" text : text
}
function section(title) {
    if (open) print ".fi"
    print ".SH " toupper(title) "\n.nf"
    open = 1
}
BEGIN { printf ".TH %s 1 \"\" \"Tessel %s\" \"Tessel\"\n.SH NAME\n", toupper(name), version }
NR == 1 {
    sub(/^tessel - /, "")
    print ".ad l\n" literal(name) " \\- " literal($0)
    next
}
/^Usage: / {
    print ".SH SYNOPSIS\n.B " literal(substr($0, 8))
    next
}
/^(Positionals|Options|Subcommands|Examples|Exit codes):$/ {
    section(substr($0, 1, length($0) - 1))
    list = 1
    next
}
# Text after a list.
/^[^ ]/ && (list || !open) {
    section("description")
    list = 0
}
open || NF { print literal($0) }
