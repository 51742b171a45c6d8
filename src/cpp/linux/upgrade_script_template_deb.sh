while ps -p ${pid_wait_for} >/dev/null; do sleep 1; done;

if [ x$XTRM == x ]; then XTRM=`which xterm`; XOPT=-e\ /bin/bash\ -l\ -c; KONSOLE=0; fi;
if [ x$XTRM == x ]; then XTRM=`which konsole`; XOPT=-e; KONSOLE=1; fi;
if [ x$XTRM == x ]; then XTRM=`which gnome-terminal`; XOPT=-x\ /bin/bash\ -c; KONSOLE=0; fi;

FLAG_FILE=/tmp/brenik-`date +%s`;
PKEXEC=Y;
if [ x$SU == x ]; then SU=`which pkexec`; fi;
if [ x$SU == x ]; then SU=`which gksu`; PKEXEC=N; fi;
if [ x$SU == x ]; then >${FLAG_FILE}; fi;

IN_CMD=set\ -o\ pipefail\;/usr/bin/sudo\ /usr/bin/dpkg\ -i\ ${upgradePath}\ 2\>\&1\|tee\ ${debug_output_reroute};
IN_CMD=${IN_CMD}\ \|\|\ /usr/bin/apt-get\ install\ -f\ -y\ 2\>\&1\|tee\ -a\ ${debug_output_reroute};


if [ x$SU == x ]; then
  if [ x$XTRM == x ]; then notify-send ${kBinaryAppName}-updater:\ no\ terminal\ emulator\ found; exit 1; fi;
  if [ $KONSOLE == "1" ]; then
    IN_CMD2="${IN_CMD};read -n 1 -p Press\ any\ key\ to\ close...\ ; echo OK >${FLAG_FILE}";
    $XTRM ${XOPT} /bin/bash -c "${IN_CMD2}";
  else
    $XTRM ${XOPT} "${IN_CMD};read -n 1 -p Press\ any\ key\ to\ close...\ ; echo OK >${FLAG_FILE}";
  fi;
else
  IN_CMD2=`printf "%q" "${IN_CMD}"`;
  if [ x$PKEXEC == xN ]; then
    $SU /bin/bash\ -c\ "${IN_CMD2}";
  else
    $SU /bin/bash -c "${IN_CMD}";
  fi;
fi;

if [ $? -ne 0 ]; then
  notify-send ${kBinaryAppName}-updater:\ There\ was\ an\ error\. For\ more\ information\ look\ at:\"${debug_output_reroute}\";
fi;

STARTED_AT=`date +%s`;
FINISH_AT=$((STARTED_AT+600));
until [ `date +%s` -gt $FINISH_AT ]; do
  if [ ! -f $FLAG_FILE ]; then break; fi;
  if grep -q OK $FLAG_FILE; then break; fi;
  sleep 2;
done;
if [ -f $FLAG_FILE ]; then rm $FLAG_FILE; fi
