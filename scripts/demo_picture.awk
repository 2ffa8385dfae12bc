# Draws some of the messages in the output of scripts/demo as an SVG picture in which they appear one
# after the other. Fails if one of them is missing.

function escaped(text) {
    gsub(/&/, "\\&amp;", text)
    gsub(/</, "\\&lt;", text)
    gsub(/>/, "\\&gt;", text)
    return text
}

function lane(peer) {
    sub(/ .*/, "", peer)
    return place[peer]
}

function want(from, to, text) {
    ++wanted
    want_from[wanted] = from
    want_to[wanted] = to
    want_text[wanted] = text
}

BEGIN {
    place["server"] = 110; place["daemon"] = 370; place["core"] = 630; place["fusion"] = 850
    title["server"] = "REST server"; title["daemon"] = "csi_receiver"
    title["core"] = "core service"; title["fusion"] = "fusion daemon"
    longest = 72
    row = 36
    pause = 0.8 # seconds
    # In this order, and each the first of its kind after the one before.
    want("daemon", "server", "\"join\":true")
    want("daemon", "core", "\"quiet\":true,\"rate\":10")
    want("core", "daemon", "{\"bots\":[{")
    want("daemon", "server", "{\"bot_info\":[{")
    want("server", "daemon", "{\"cmd\":\"scan\"}")
    want("server", "daemon", "\"engineType\":\"cpd\"")
    want("daemon", "core", "\"quiet\":false,\"rate\":25")
    want("daemon", "fusion", "\"engineType\":\"cpd\"")
    want("fusion", "daemon", "\"state\":\"running\"")
    want("daemon", "server", "\"state\":\"running\"")
    want("daemon", "server", "\"reason\":\"complete\"")
    next_one = 1
}

# TIME  FROM -> TO  KIND  TEXT
/^[0-9:.]+ +[a-z]+.* -> / {
    if (next_one > wanted) next
    split($0, halves, / +-> /)
    from = halves[1]
    sub(/^[0-9:.]+ +/, "", from)
    to = halves[2]
    text = halves[2]
    if (!match(text, /[\[{]/)) next
    kind = substr(text, 1, RSTART - 1)
    text = substr(text, RSTART)
    sub(/ +$/, "", kind)
    sub(/.* /, "", kind)
    if (index(from, want_from[next_one]) != 1 || index(to, want_to[next_one]) != 1) next
    if (!index(text, want_text[next_one])) next
    message_from[next_one] = from
    message_to[next_one] = to
    message_text[next_one] = text
    message_kind[next_one] = kind
    ++next_one
}

END {
    if (next_one <= wanted) {
        print "demo_picture: no message from " want_from[next_one] " to " want_to[next_one] \
            " with " want_text[next_one] >"/dev/stderr"
        exit 1
    }
    height = 70 + wanted * row + 14
    printf "<svg xmlns=\"http://www.w3.org/2000/svg\" viewBox=\"0 0 960 %d\" width=\"960\">\n", height
    print "<style>"
    print "text{font:11px monospace;fill:#222}.peer{font:bold 14px sans-serif;text-anchor:middle}"
    print ".life{stroke:#bbb;stroke-dasharray:4 3}.arrow{stroke:#30506e;stroke-width:1.6}"
    print ".box{fill:#fff}.kind{font-weight:bold;fill:#30506e}.daemon{fill:#e3edf6;stroke:#30506e}.head{fill:#30506e}"
    print "@keyframes appear{from{opacity:0}to{opacity:1}}"
    print "@media (prefers-reduced-motion:no-preference){.message{animation:appear .4s both}}"
    print "</style>"
    print "<defs><marker id=\"head\" markerUnits=\"userSpaceOnUse\" markerWidth=\"9\" markerHeight=\"8\" refX=\"9\" refY=\"4\" orient=\"auto\">" \
        "<path class=\"head\" d=\"M0 0L9 4L0 8z\"/></marker></defs>"
    print "<rect width=\"100%\" height=\"100%\" class=\"box\"/>"
    for (peer in place) {
        printf "<line class=\"life\" x1=\"%d\" x2=\"%d\" y1=\"44\" y2=\"%d\"/>\n", place[peer], place[peer], height - 8
        if (peer == "daemon")
            printf "<rect class=\"daemon\" x=\"%d\" y=\"14\" width=\"120\" height=\"28\" rx=\"4\"/>\n", place[peer] - 60
        printf "<text class=\"peer\" x=\"%d\" y=\"33\">%s</text>\n", place[peer], title[peer]
    }
    for (i = 1; i <= wanted; i++) {
        a = lane(message_from[i])
        b = lane(message_to[i])
        left = a < b ? a : b
        y = 70 + i * row - 12
        text = message_text[i]
        if (length(text) > longest) text = substr(text, 1, longest - 4) " ..."
        printf "<g class=\"message\" style=\"animation-delay:%.1fs\">", (i - 1) * pause
        printf "<rect class=\"box\" x=\"%d\" y=\"%d\" width=\"%.0f\" height=\"14\"/>", left + 6, y - 19, (length(message_kind[i]) + 1 + length(text)) * 6.7
        printf "<text x=\"%d\" y=\"%d\"><tspan class=\"kind\">%s</tspan> %s</text>", left + 10, y - 8,
            message_kind[i], escaped(text)
        printf "<line class=\"arrow\" x1=\"%d\" x2=\"%d\" y1=\"%d\" y2=\"%d\" marker-end=\"url(#head)\"/></g>\n", a, b, y, y
    }
    print "</svg>"
}
