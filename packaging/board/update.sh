#!/bin/sh
# The board's resident update script: the service runs it when it has received an
# update package. Unpacks the package and runs the script that came with it.
cd /home/tovin/tmp || exit 1
tar -xzof new_hd_version.tar.gz || exit 1
[ -f update.sh ] && chmod +x update.sh && ./update.sh
