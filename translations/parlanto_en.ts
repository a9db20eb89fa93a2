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
    <message id="notification.text_too_long">
        <source>Text too long (max 5,000 characters)</source>
        <translation>Text too long (max 5,000 characters)</translation>
    </message>
    <message id="notification.timeout">
        <source>Translation timed out</source>
        <translation>Translation timed out</translation>
    </message>
    <message id="notification.unauthorized">
        <source>Your session has expired. Please sign in again.</source>
        <translation>Your session has expired. Please sign in again.</translation>
    </message>
    <message id="notification.network_error">
        <source>Translation failed — no network connection.</source>
        <translation>Translation failed — no network connection.</translation>
    </message>
    <message id="notification.unknown_error">
        <source>Translation failed, try again</source>
        <translation>Translation failed, try again</translation>
    </message>
    <message id="notification.translation_copied">
        <source>Translation copied — press Ctrl+V to paste</source>
        <translation>Translation copied — press Ctrl+V to paste</translation>
    </message>
    <message id="permission.title">
        <source>Parlanto needs access to other applications</source>
        <translation>Parlanto needs access to other applications</translation>
    </message>
    <message id="permission.body">
        <source>To read the text you select and to paste translations, Parlanto must be allowed to control your computer through accessibility.</source>
        <translation>To read the text you select and to paste translations, Parlanto must be allowed to control your computer through accessibility.</translation>
    </message>
    <message id="permission.step1">
        <source>1. Open your system's accessibility settings with the button below.</source>
        <translation>1. Open your system's accessibility settings with the button below.</translation>
    </message>
    <message id="permission.step2">
        <source>2. Switch on assistive technologies (screen reader support) for your session.</source>
        <translation>2. Switch on assistive technologies (screen reader support) for your session.</translation>
    </message>
    <message id="permission.step3">
        <source>3. Come back here: this window closes by itself as soon as access is granted.</source>
        <translation>3. Come back here: this window closes by itself as soon as access is granted.</translation>
    </message>
    <message id="permission.bus.step1">
        <source>1. Install the accessibility bus: sudo apt-get install at-spi2-core.</source>
        <translation>1. Install the accessibility bus: sudo apt-get install at-spi2-core.</translation>
    </message>
    <message id="permission.bus.step2">
        <source>2. Log out and back in, so that your session starts it.</source>
        <translation>2. Log out and back in, so that your session starts it.</translation>
    </message>
    <message id="permission.bus.step3">
        <source>3. Start Parlanto again: this window closes by itself once the bus answers.</source>
        <translation>3. Start Parlanto again: this window closes by itself once the bus answers.</translation>
    </message>
    <message id="permission.x11.step1">
        <source>1. Parlanto needs an X11 session: choose an X11 (Xorg) session at the login screen.</source>
        <translation>1. Parlanto needs an X11 session: choose an X11 (Xorg) session at the login screen.</translation>
    </message>
    <message id="permission.x11.step2">
        <source>2. Your X server must offer the XTest and XInput 2 extensions (every standard Xorg server does).</source>
        <translation>2. Your X server must offer the XTest and XInput 2 extensions (every standard Xorg server does).</translation>
    </message>
    <message id="permission.x11.step3">
        <source>3. Log in again and start Parlanto: this window closes by itself once they are there.</source>
        <translation>3. Log in again and start Parlanto: this window closes by itself once they are there.</translation>
    </message>
    <message id="permission.open_settings">
        <source>Open Settings</source>
        <translation>Open Settings</translation>
    </message>
</context>
</TS>
