# What differs between two runs of one program: replaced in the document and in what is printed alike.

# The date of a record; behind it the host, and the numbers of the process and the thread.
s/[A-Z][a-z]{2} [A-Z][a-z]{2} [0-9]{2} [0-9:]{8} UTC [0-9]{4}/DATE/g
s/^DATE [^ ]+ ([^ ]+) [0-9]+ [0-9]+/DATE HOST \1 PROCESS THREAD/

# The date in the name of a log file.
s/-[0-9]{8}\.log/-DAY.log/g

# Lines of the library's own sources: in records, in the traces of a rotation, in the frames of a trace.
s/ (Write|Thread|ContextScope|DynLibrary) [0-9]+ :/ \1 LINE :/
s/^LogFile:[0-9]+:/LogFile:LINE:/
s/(com\.kor\.dal\.nim\.[A-Za-z.]+\(\)):[0-9]+/\1:LINE/

# The names that the library makes of a running number.
s/(Task|Thread|ThreadPool)[-_ ]?[0-9]{6,}/\1 NUMBER/g
