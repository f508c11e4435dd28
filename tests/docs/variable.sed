# What differs between two runs of one program: replaced in the document and in what is printed alike.

# The date of a record; behind it the host, and the numbers of the process and the thread.
s/[A-Z][a-z]{2} [A-Z][a-z]{2} [0-9]{2} [0-9:]{8} UTC [0-9]{4}/Sat Nov 14 15:05:20 UTC 2026/g
s/^(Sat Nov 14 15:05:20 UTC 2026) [^ ]+ ([^ ]+) [0-9]+ [0-9]+/\1 host01 \2 4711 4711/

# The date in the name of a log file.
s/-[0-9]{8}\.log/-20261114.log/g

# Lines of the library's own sources: in records, where these have no ending; in the traces of a rotation;
# in the frames of a trace.
s/ ([A-Z][A-Za-z]+) [0-9]+ :/ \1 100 :/
s/^LogFile:[0-9]+:/LogFile:100:/
s/(com\.kor\.dal\.nim\.[A-Za-z.]+\(\)):[0-9]+/\1:100/
