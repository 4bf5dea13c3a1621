# What a soak's service held, as a picture: gnuplot -e "table='FILE'; picture='FILE'" soak.gp. The columns are
# seconds, MiB, threads, descriptors and replies per second.
set terminal svg size 760,620 font 'sans-serif,12' background '#ffffff'
set output picture
stats table using 1 nooutput
# As many points as the eye can tell apart: the mean of the samples in each.
width = STATS_max / 300.0
place(x) = width * (floor(x / width) + 0.5)
set multiplot layout 3,1 title sprintf('The service under fifty clients for %.0f seconds', STATS_max)
set xrange [0:STATS_max]
set yrange [0:*]
set grid ytics linecolor '#dddddd'
set border 1 linecolor '#888888'
set tics nomirror
set lmargin 8
set key tmargin right horizontal
set ytics font ',9'
set title 'Resident memory, MiB'
plot table using (place($1)):2 smooth unique with lines linecolor '#0b62b8' notitle
set title 'Threads and descriptors'
plot table using (place($1)):3 smooth unique with lines linecolor '#0b62b8' title 'threads', \
     table using (place($1)):4 smooth unique with lines linecolor '#c4510a' title 'descriptors'
set title 'Replies per second'
set xlabel 'seconds'
plot table using (place($1)):5 smooth unique with lines linecolor '#0b62b8' notitle
unset multiplot
