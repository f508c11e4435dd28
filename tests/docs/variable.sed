# Differences between two runs of one program, replaced both in the document and in the output.

# The date of a record; after it the host, the process ID and the thread ID.
s/[A-Z][a-z]{2} [A-Z][a-z]{2} [0-9]{2} [0-9:]{8} UTC [0-9]{4}/Sat Nov 14 15:05:20 UTC 2026/g
s/^(Sat Nov 14 15:05:20 UTC 2026) [^ ]+ ([^ ]+) [0-9]+ [0-9]+/\1 host01 \2 4711 4711/

# The date in the name of a log file.
s/-[0-9]{8}\.log/-20261114.log/g

# Line numbers in the library's own sources: in records, where the sources have no extension; in the traces of a
# rotation; in stack traces.
s/ ([A-Z][A-Za-z]+) [0-9]+ :/ \1 100 :/
s/^LogFile:[0-9]+:/LogFile:100:/
s/(com\.kor\.dal\.nim\.[A-Za-z.]+\(\)):[0-9]+/\1:100/
