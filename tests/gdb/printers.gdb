# Prints every object of Debuggee.cpp; the results are compared with printers.expected.
set confirm off
set width 0
set print pretty off
set print thread-events off
break StopHere
run
up
print empty
print flag
print letter
print byte
print small
print port
print number
print size
print ratio
print angle
print offset
print stamp
print text
print bytes
print *number.m_p
print group
print none
print block
print view
print *pRaw
print surface
print bare
print probe
print unknown
print *pBroken
print/r number
set print elements 4
print text
disable pretty-printer global libTnRobotKernel
print number
kill
