"""A command that is hard to end."""

# Ctrl-C at the terminal does not reach it, so that only a real cancel ends it. Of its three
# processes two have left its session and their parents. Whoever reads its standard output to the
# end waits for them all.
STUBBORN = ('trap "" INT; (setsid sh -c "setsid sleep 600 & echo pid $$; exec sleep 600" &); '
            'exec sleep 600')
