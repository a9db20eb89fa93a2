<?xml version="1.0" encoding="utf-8"?>
<!DOCTYPE TS>
<TS version="2.1" language="en">
<context>
    <name>Parlanto</name>
    <message id="menu.settings">
        <source>Settings…</source>
        <translation>Settings…</translation>
    </message>
    <message id="menu.quit">
        <source>Quit Parlanto</source>
        <translation>Quit Parlanto</translation>
    </message>
    <message id="popup.copy">
        <source>Copy</source>
        <translation>Copy</translation>
    </message>
    <message id="notification.translation_ready">
        <source>Your translation is ready and on the clipboard. Click to copy it again.</source>
        <translation>Your translation is ready and on the clipboard. Click to copy it again.</translation>
    </message>
    <message id="notification.action.copy">
        <source>Copy again</source>
        <translation>Copy again</translation>
    </message>
    <message id="notification.quota_exceeded.title">
        <source>Translation quota used up</source>
        <translation>Translation quota used up</translation>
    </message>
    <message id="notification.quota_exceeded.body_wait">
        <source>You have used this month's translation characters. Your quota renews at the start of next month.</source>
        <translation>You have used this month's translation characters. Your quota renews at the start of next month.</translation>
    </message>
</context>
</TS>
