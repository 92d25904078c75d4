# Draws the curves that curves_bench has written: gnuplot -e "from='FOLDER'; to='FOLDER'" curves.gnuplot

set terminal svg size 720,440 dynamic font 'sans-serif,13' background rgb 'white'
set logscale xy
set format x '%.0s %c'
set grid
set xrange [1000:1000000]
set key top left

draw(measure, title, unit) = sprintf("set output '%s/%s.svg'; set title '%s'; set ylabel '%s'; ", to, measure, title, unit)
curve(measure, who, name, color) = sprintf("'%s/%s.%s.tsv' with linespoints lw 2 pt 7 ps 0.6 lc rgb '%s' title '%s'", \
                                           from, measure, who, color, name)
ours = '#c0392b'

set xlabel 'records'
eval draw('open', 'Opening a file, checksum verified', 'ns a record') \
     .'plot '.curve('open', 'store', 'libtav\_adapt', ours) \
     .', '.curve('open', 'protobuf', 'protobuf + SHA-256', '#2980b9') \
     .', '.curve('open', 'sqlite', 'SQLite + integrity check', '#27ae60') \
     .', '.curve('open', 'floor', 'read + SHA-256 + copy', '#7f8c8d')
eval draw('get', 'Finding a record by its key, in random order', 'ns a record') \
     .'plot '.curve('get', 'store', 'libtav\_adapt', ours).', '.curve('get', 'lmdb', 'LMDB', '#2980b9')
eval draw('flush', 'Writing the file after a change of one field', 'ns a record') \
     .'plot '.curve('flush', 'store', 'libtav\_adapt', ours) \
     .', '.curve('flush', 'floor', 'SHA-256 of both + write + fsync', '#7f8c8d')

set xlabel 'subscriptions'
eval draw('event', 'An event that satisfies nobody, 100 distinct conditions', 'ns an event') \
     .'plot '.curve('event', 'detect', 'libtav\_adapt', ours) \
     .', '.curve('event', 'floor', 'a call of match for each condition', '#7f8c8d') \
     .', '.curve('event', 'loop', 'a call of match for each subscription', '#2980b9')
eval draw('subscribe', 'Subscribing', 'ns a subscription') \
     .'plot '.curve('subscribe', 'shared', 'libtav\_adapt, 100 distinct conditions', ours) \
     .', '.curve('subscribe', 'distinct', 'libtav\_adapt, all conditions distinct', '#e67e22')
