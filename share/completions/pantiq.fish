# Completion of pantiq for fish; made by tools/manual.py.
complete -c pantiq -f
complete -c pantiq -n __fish_use_subcommand -l help -d 'Prints help'
complete -c pantiq -n __fish_use_subcommand -l version -d 'Prints the version'
complete -c pantiq -n __fish_use_subcommand -a run -d 'Run a graph'
complete -c pantiq -n '__fish_seen_subcommand_from run' -s h -l help -d 'Print this help message and exit'
complete -c pantiq -n '__fish_seen_subcommand_from run' -l frames -x -d 'End after N frames at each sink'
complete -c pantiq -n '__fish_seen_subcommand_from run' -l seconds -x -d 'End after this much of stream time'
complete -c pantiq -n '__fish_seen_subcommand_from run' -l from -x -d 'Leave out the stream up to this time'
complete -c pantiq -n '__fish_seen_subcommand_from run' -l overwrite -d 'Replace output files that are there'
complete -c pantiq -n '__fish_seen_subcommand_from run' -l at -x -d 'At this stream time of a component, set a property of it or send to a pin of it: --at 3s switch.Enabled=false, --at 2.5s snap.SnapshotPin'
complete -c pantiq -n '__fish_seen_subcommand_from run' -l realtime -d 'Generators keep their own rate'
complete -c pantiq -n '__fish_seen_subcommand_from run' -l json -d 'Events as JSON, one a line, on standard output (on standard error if a sink writes to the former)'
complete -c pantiq -n '__fish_seen_subcommand_from run' -l quiet -d 'Say nothing but why the run failed'
complete -c pantiq -n '__fish_seen_subcommand_from run' -a "(pantiq list 2>/dev/null | awk '/^  /{print \$1}')"
complete -c pantiq -n '__fish_seen_subcommand_from run' -F
complete -c pantiq -n __fish_use_subcommand -a convert -d 'Decode a file, run it through filters, encode it as another'
complete -c pantiq -n '__fish_seen_subcommand_from convert' -s h -l help -d 'Print this help message and exit'
complete -c pantiq -n '__fish_seen_subcommand_from convert' -l frames -x -d 'End after N frames at each sink'
complete -c pantiq -n '__fish_seen_subcommand_from convert' -l seconds -x -d 'End after this much of stream time'
complete -c pantiq -n '__fish_seen_subcommand_from convert' -l from -x -d 'Leave out the stream up to this time'
complete -c pantiq -n '__fish_seen_subcommand_from convert' -l overwrite -d 'Replace output files that are there'
complete -c pantiq -n '__fish_seen_subcommand_from convert' -l at -x -d 'At this stream time of a component, set a property of it or send to a pin of it: --at 3s switch.Enabled=false, --at 2.5s snap.SnapshotPin'
complete -c pantiq -n '__fish_seen_subcommand_from convert' -l json -d 'Events as JSON, one a line, on standard output'
complete -c pantiq -n '__fish_seen_subcommand_from convert' -l quiet -d 'Say nothing but why it failed'
complete -c pantiq -n '__fish_seen_subcommand_from convert' -a "(pantiq list 2>/dev/null | awk '/^  /{print \$1}')"
complete -c pantiq -n '__fish_seen_subcommand_from convert' -F
complete -c pantiq -n __fish_use_subcommand -a check -d 'Tell everything that is wrong with a graph, without running it'
complete -c pantiq -n '__fish_seen_subcommand_from check' -s h -l help -d 'Print this help message and exit'
complete -c pantiq -n '__fish_seen_subcommand_from check' -l json -d 'Faults as JSON, one a line, on standard output'
complete -c pantiq -n '__fish_seen_subcommand_from check' -a "(pantiq list 2>/dev/null | awk '/^  /{print \$1}')"
complete -c pantiq -n '__fish_seen_subcommand_from check' -F
complete -c pantiq -n __fish_use_subcommand -a list -d 'List the classes of components, or what the platform brings'
complete -c pantiq -n '__fish_seen_subcommand_from list' -s h -l help -d 'Print this help message and exit'
complete -c pantiq -n '__fish_seen_subcommand_from list' -l effects -x -d 'The effects for TPQDMOEffect, each tried; or the settings of one'
complete -c pantiq -n '__fish_seen_subcommand_from list' -l json -d 'As JSON'
complete -c pantiq -n '__fish_seen_subcommand_from list' -l codecs -d 'List the codecs of TPQVideoCompressor that work here; they are tried, in seconds'
complete -c pantiq -n '__fish_seen_subcommand_from list' -l devices -d 'List the devices that TPQDSVideoOut plays to, each tried'
complete -c pantiq -n '__fish_seen_subcommand_from list' -l encoders -d 'List the encoders for TPQDSVideoCompressor, each tried, in seconds'
complete -c pantiq -n __fish_use_subcommand -a inspect -d 'Show the properties and pins of a class, or a plug-in'
complete -c pantiq -n '__fish_seen_subcommand_from inspect' -s h -l help -d 'Print this help message and exit'
complete -c pantiq -n '__fish_seen_subcommand_from inspect' -l plugin -r -F -d 'Show the parameters of a plug-in for TPQFreeFrame instead'
complete -c pantiq -n '__fish_seen_subcommand_from inspect' -l json -d 'As JSON'
complete -c pantiq -n '__fish_seen_subcommand_from inspect' -a "(pantiq list 2>/dev/null | awk '/^  /{print \$1}')"
complete -c pantiq -n __fish_use_subcommand -a save -d 'Write a graph as a graph file'
complete -c pantiq -n '__fish_seen_subcommand_from save' -s h -l help -d 'Print this help message and exit'
complete -c pantiq -n '__fish_seen_subcommand_from save' -s o -l output -r -F -d 'The graph file; - is standard output'
complete -c pantiq -n '__fish_seen_subcommand_from save' -l overwrite -d 'Replace a file that is there'
complete -c pantiq -n '__fish_seen_subcommand_from save' -a "(pantiq list 2>/dev/null | awk '/^  /{print \$1}')"
complete -c pantiq -n '__fish_seen_subcommand_from save' -F
complete -c pantiq -n __fish_use_subcommand -a dot -d 'Write a graph in the language of Graphviz'
complete -c pantiq -n '__fish_seen_subcommand_from dot' -s h -l help -d 'Print this help message and exit'
complete -c pantiq -n '__fish_seen_subcommand_from dot' -a "(pantiq list 2>/dev/null | awk '/^  /{print \$1}')"
complete -c pantiq -n '__fish_seen_subcommand_from dot' -F
complete -c pantiq -n __fish_use_subcommand -a bench -d 'Measure frames per second and the time in each component'
complete -c pantiq -n '__fish_seen_subcommand_from bench' -s h -l help -d 'Print this help message and exit'
complete -c pantiq -n '__fish_seen_subcommand_from bench' -l frames -x -d 'End after N frames at each sink'
complete -c pantiq -n '__fish_seen_subcommand_from bench' -l seconds -x -d 'End after this much of stream time'
complete -c pantiq -n '__fish_seen_subcommand_from bench' -l from -x -d 'Leave out the stream up to this time'
complete -c pantiq -n '__fish_seen_subcommand_from bench' -l overwrite -d 'Replace output files that are there'
complete -c pantiq -n '__fish_seen_subcommand_from bench' -l json -d 'As JSON'
complete -c pantiq -n '__fish_seen_subcommand_from bench' -a "(pantiq list 2>/dev/null | awk '/^  /{print \$1}')"
complete -c pantiq -n '__fish_seen_subcommand_from bench' -F
complete -c pantiq -n __fish_use_subcommand -a play -d 'Play a file to screen and sound'
complete -c pantiq -n '__fish_seen_subcommand_from play' -s h -l help -d 'Print this help message and exit'
complete -c pantiq -n '__fish_seen_subcommand_from play' -l frames -x -d 'End after N frames'
complete -c pantiq -n '__fish_seen_subcommand_from play' -l seconds -x -d 'End after this much'
complete -c pantiq -n '__fish_seen_subcommand_from play' -l from -x -d 'Begin at this time of the file'
complete -c pantiq -n '__fish_seen_subcommand_from play' -l video -x -d 'The device that shows it, as pantiq list --devices names it'
complete -c pantiq -n '__fish_seen_subcommand_from play' -l audio -x -d 'The device that plays the sound'
complete -c pantiq -n '__fish_seen_subcommand_from play' -l mute -d 'Without the sound'
complete -c pantiq -n '__fish_seen_subcommand_from play' -l quiet -d 'Say nothing but why it failed'
complete -c pantiq -n '__fish_seen_subcommand_from play' -F
complete -c pantiq -n __fish_use_subcommand -a edit -d 'Draw the mask of a component in a graph file'
complete -c pantiq -n '__fish_seen_subcommand_from edit' -s h -l help -d 'Print this help message and exit'
complete -c pantiq -n '__fish_seen_subcommand_from edit' -l property -x -d 'The property that holds the mask, if there are several'
complete -c pantiq -n '__fish_seen_subcommand_from edit' -s o -l output -r -F -d 'Write the graph to this file instead; - is standard output'
complete -c pantiq -n '__fish_seen_subcommand_from edit' -l custom -d 'Put the drawn mask in use: ShapeType becomes stCustom'
complete -c pantiq -n '__fish_seen_subcommand_from edit' -l terminal -d 'On the terminal, without a window'
complete -c pantiq -n '__fish_seen_subcommand_from edit' -l overwrite -d 'Replace the file of -o if it is there'
complete -c pantiq -n '__fish_seen_subcommand_from edit' -F
complete -c pantiq -n __fish_use_subcommand -a kernels -d 'Show which variant of each kernel this processor runs'
complete -c pantiq -n '__fish_seen_subcommand_from kernels' -s h -l help -d 'Print this help message and exit'
complete -c pantiq -n '__fish_seen_subcommand_from kernels' -l json -d 'As JSON'
